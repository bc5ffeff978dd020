#include "tests/client/TestCommands.h"

#include "tests/support/TestSupport.h"

namespace ClientTest {

Words exitingWith(int status) { return {"cmd", "/c", "exit " + std::to_string(status)}; }

Words writingTheHandle(const std::string& file) {
    return {"cmd", "/c", "echo %RUVO_LOCK_HANDLE%>" + file};
}

Words until(const std::string& begun, const std::string& go, int status) {
    const std::string batch = begun + ".bat";
    TestSupport::writeFile(batch, "@echo off\r\ntype nul > \"" + begun +
                                      "\"\r\n:again\r\nif not exist \"" + go +
                                      "\" goto again\r\ndel \"" + begun + "\"\r\nexit " +
                                      std::to_string(status) + "\r\n");
    return {batch};
}

}  // namespace ClientTest
