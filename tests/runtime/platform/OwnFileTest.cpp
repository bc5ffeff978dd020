#include "runtime/platform/OwnFile.h"

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

using namespace VornPlatform;
using TestSupport::writeFile;

namespace {

class OwnFileTest : public testing::Test {
protected:
    OwnFile::Trust open(const std::string& path) {
        OwnFile::Trust trust = OwnFile::Trust::NoFile;
        EXPECT_FALSE(file_.open(path, trust));
        EXPECT_EQ(file_.isOpen(), trust == OwnFile::Trust::Good);
        return trust;
    }
    std::string readAll(std::size_t piece) {
        std::string all;
        std::string buffer(piece, '\0');
        for (std::size_t count = 1; count > 0;) {
            EXPECT_FALSE(file_.read(buffer.data(), buffer.size(), count));
            all.append(buffer, 0, count);
        }
        return all;
    }

    TestSupport::TemporaryDirectory directory_;
    OwnFile file_;
};

TEST_F(OwnFileTest, ReadsEveryByte) {
    const std::string bytes("one\r\n\0\x1A two\n", 13);
    writeFile(directory_.file("gr\xC3\xBC\xC3\x9F"), bytes);
    for (const std::size_t piece : {1u, 5u, 13u, 1000u}) {
        EXPECT_EQ(open(directory_.file("gr\xC3\xBC\xC3\x9F")), OwnFile::Trust::Good);
        EXPECT_EQ(readAll(piece), bytes) << piece;
    }
    file_.close();
    EXPECT_FALSE(file_.isOpen());
    file_.close();
    writeFile(directory_.file("empty"), "");
    EXPECT_EQ(open(directory_.file("empty")), OwnFile::Trust::Good);
    EXPECT_EQ(readAll(10), "");
}

TEST_F(OwnFileTest, SaysWhatIsNoFile) {
    EXPECT_EQ(open(directory_.text()), OwnFile::Trust::NoFile);
    OwnFile::Trust trust{};
    EXPECT_EQ(file_.open(directory_.file("missing"), trust).condition(), OsCondition::NotFound);
    EXPECT_FALSE(file_.isOpen());
}

}  // namespace
