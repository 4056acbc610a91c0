// Runs what must throw an Error and gives back its text, for comparing.
#pragma once

#include "platform/Base.h"

#include <gtest/gtest.h>

#include <string>

namespace Quillmoran::TestSupport {

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

} // namespace Quillmoran::TestSupport
