#include "runtime/support/VornException.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <thread>

using namespace VornSupport;

namespace {

TEST(VornException, CarriesMessageAndCode) {
    const VornException plain("no such job");
    EXPECT_EQ(plain.getMessage(), "no such job");
    EXPECT_EQ(plain.getCode(), 0);
    EXPECT_STREQ(plain.what(), "no such job");
    EXPECT_EQ(VornException("x", -999).getCode(), -999);
    EXPECT_EQ(VornException("").getMessage(), "");
}

TEST(VornException, CarriesTheSystemsTextAndCode) {
    const VornPlatform::OsError error(2);
    const VornException exception("cannot open", error);
    EXPECT_EQ(exception.getMessage(), "cannot open: " + error.text());
    EXPECT_EQ(exception.getCode(), 2);
}

TEST(VornException, KeepsItsOwnTextWhenCopied) {
    VornException copy("other", 1);
    {
        const VornException original("a message that is too long for the object itself", 7);
        copy = original;
    }
    const VornException second(copy);
    EXPECT_EQ(second.getMessage(), "a message that is too long for the object itself");
    EXPECT_STREQ(second.what(), copy.what());
    EXPECT_NE(second.what(), copy.what());
    EXPECT_EQ(second.getCode(), 7);
}

TEST(VornException, KeepsZeroBytesInItsMessage) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(VornException(text).getMessage(), text);
}

TEST(VornException, IsCaughtAsAStandardException) {
    try {
        throw VornException("thrown", 3);
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "thrown");
    }
}

TEST(VornException, PassesFromThreadToThread) {
    std::exception_ptr passed;
    std::thread([&] {
        try {
            throw VornPropertyNotFound("ruvod.tcp-server.port");
        } catch (...) {
            passed = std::current_exception();
        }
    }).join();
    EXPECT_THROW(std::rethrow_exception(passed), VornPropertyNotFound);
}

TEST(VornPropertyNotFound, NamesTheKey) {
    const VornPropertyNotFound missing("ruvod.load-monitors");
    EXPECT_EQ(missing.getPropertyName(), "ruvod.load-monitors");
    EXPECT_NE(missing.getMessage().find("ruvod.load-monitors"), std::string::npos);
    EXPECT_EQ(missing.getCode(), 0);
}

TEST(VornPropertyNotFound, IsAVornException) {
    try {
        throw VornPropertyNotFound("key");
    } catch (const VornException& e) {
        EXPECT_STREQ(e.what(), "property not found: key");
    }
}

}  // namespace
