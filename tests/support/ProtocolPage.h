#pragma once

#include "tests/support/TestSupport.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

// The examples of docs/protocol.md.
class ProtocolPage {
public:
    // Throws std::runtime_error when the page cannot be found.
    ProtocolPage() {
        const char* const root = std::getenv("RUVO_SOURCE_DIR");
        if (root == nullptr) throw std::runtime_error("RUVO_SOURCE_DIR is not set");
        text_ = readFile(std::string(root) + "/docs/protocol.md");
        if (text_.empty()) throw std::runtime_error("docs/protocol.md cannot be read");
    }

    struct Piece {
        std::string speaker;  // "client", "daemon" or "delivery"
        std::string bytes;
        std::string comment;
    };

    // The lines of all blocks of hex, in order.
    std::vector<Piece> pieces() const {
        std::vector<Piece> result;
        for (const std::string& block : blocks("hex")) {
            std::istringstream lines(block);
            for (std::string line; std::getline(lines, line);) result.push_back(pieceOf(line));
        }
        return result;
    }

    // All that one of them says.
    std::string said(std::string_view speaker) const {
        std::string bytes;
        for (const Piece& piece : pieces()) {
            if (piece.speaker == speaker) bytes += piece.bytes;
        }
        return bytes;
    }

    // The contents of the fenced blocks of a language.
    std::vector<std::string> blocks(const std::string& language) const {
        const std::string opening = "\n```" + language + "\n";
        std::vector<std::string> result;
        for (auto at = text_.find(opening); at != std::string::npos;
             at = text_.find(opening, at + 1)) {
            const auto begin = at + opening.size();
            const auto end = text_.find("\n```\n", begin);
            if (end == std::string::npos) throw std::runtime_error("a block has no end");
            result.push_back(text_.substr(begin, end + 1 - begin));
        }
        return result;
    }

private:
    // "client  00 01   one request": hex up to two blanks.
    static Piece pieceOf(const std::string& line) {
        Piece piece;
        std::istringstream words(line);
        words >> piece.speaker;
        std::string rest;
        std::getline(words >> std::ws, rest);
        const auto end = rest.find("  ");
        std::istringstream digits(rest.substr(0, end));
        for (std::string digit; digits >> digit;) {
            piece.bytes += static_cast<char>(std::stoi(digit, nullptr, 16));
        }
        if (end != std::string::npos) piece.comment = rest.substr(rest.find_first_not_of(' ', end));
        return piece;
    }

    std::string text_;
};

}  // namespace TestSupport
