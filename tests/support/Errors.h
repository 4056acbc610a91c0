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
    const std::string failure = failureOf(body), prefix = std::to_string(code) + ' ';
    if (failure == "no error")
        return "nothing thrown";
    EXPECT_TRUE(failure.starts_with(prefix)) << failure;
    return failure.substr(std::min(prefix.size(), failure.size()));
}

} // namespace Quillmoran::Testing
