#include "tests/client/TestCommands.h"

namespace ClientTest {

Words exitingWith(int status) { return {"sh", "-c", "exit " + std::to_string(status)}; }

Words writingTheHandle(const std::string& file) {
    return {"sh", "-c", "echo \"$RUVO_LOCK_HANDLE\" > \"$1\"", "sh", file};
}

Words until(const std::string& begun, const std::string& go, int status) {
    return {"sh", "-c",
            ": > \"$1\"; until [ -e \"$2\" ]; do sleep 0.01; done; rm \"$1\"; exit " +
                std::to_string(status),
            "sh", begun, go};
}

}  // namespace ClientTest
