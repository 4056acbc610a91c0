// Runs code that must throw an Error, and returns the error as text.
#pragma once

#include <vxunpack/Base.h>

#include <gtest/gtest.h>

#include <string>

namespace Quillmoran::Testing {

// The code and the text: "40007 bad index".
template <class Body>
std::string failureOf(Body body)
{
    try {
        body();
    } catch (const Error& error) {
        return std::to_string(error.error()) + ' ' + error.what();
    }
    return "no error";
}

// The text alone, of an error with the given code.
template <class Body>
std::string errorOf(int code, Body body)
{
    try {
        body();
    } catch (const Error& error) {
        EXPECT_EQ(error.error(), code);
        return error.what();
    }
    return "nothing thrown";
}

} // namespace Quillmoran::Testing
