#include "platform/Base.h"
#include "support/Errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

// The address sanitizer ends the process on sizes that malloc refuses, unless it is told not to.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace Quillmoran {
namespace {

using TestSupport::errorOf;

const std::string noMemory = std::strerror(ENOMEM);
constexpr std::size_t impossible = SIZE_MAX / 2;

TEST(Error, AppendsTextAndCutsItAt1023Bytes)
{
    Error error("dir/file.cpp", "function", 1, -1);
    EXPECT_STREQ(error.what(), "");
    error("%s", std::string(1000, 'a').c_str())("%d%s", 7, std::string(5000, 'b').c_str())("lost");
    EXPECT_EQ(error.what(), std::string(1000, 'a') + '7' + std::string(22, 'b'));
}

TEST(Error, NamesTheFileAfterItsLastSeparator)
{
    const auto filename = [](const char* path) { return Error(path, "", 0, 0).filename(); };
    EXPECT_STREQ(filename("src/platform/Base.cpp"), "Base.cpp");
    EXPECT_STREQ(filename("c:\\src\\Base.cpp"), "Base.cpp");
    EXPECT_STREQ(filename("src/a\\b.cpp"), "a\\b.cpp"); // a slash anywhere makes backslashes plain
    EXPECT_STREQ(filename("src/"), "");
    EXPECT_EQ(filename("Base.cpp"), nullptr);
}

TEST(Error, TellsPlaceCodeAndTextOfItsThrow)
{
    const std::string longText(3000, '%');
    int line = 0;
    try {
        line = __LINE__ + 1;
        QM_THROW(40012, "bad channel name '%s'", longText.c_str());
    } catch (const Error& error) {
        EXPECT_EQ(error.what(), ("bad channel name '" + longText).substr(0, 1023));
        EXPECT_STREQ(error.filename(), "ErrorTest.cpp");
        EXPECT_STREQ(error.function(), "TestBody");
        EXPECT_EQ(error.line(), line);
        EXPECT_EQ(error.error(), 40012);
    }
    EXPECT_NE(line, 0);
}

TEST(OSError, HasTheSystemsTextAndTheBarePath)
{
    const auto fail = [] {
        errno = ENOENT;
        QM_THROW_OS("nodir/out.txt");
    };
    EXPECT_EQ(errorOf(ENOENT, fail), "No such file or directory path = nodir/out.txt");
}

TEST(Memory, RefusesImpossibleSizesAsOutOfMemory)
{
    EXPECT_THROW(XALLOC(impossible), OSError);
    EXPECT_EQ(errorOf(ENOMEM, [] { XALLOC(impossible); }), noMemory);
    // The product of count and size would be small again.
    EXPECT_EQ(errorOf(ENOMEM, [] { makeBuffer<double>(SIZE_MAX / 8 + 2); }), noMemory);
}

TEST(Memory, KeepsTheBlockThatCannotGrow)
{
    const Buffer<char> block(STRDUP("kept"));
    EXPECT_EQ(errorOf(ENOMEM, [&] { XREALLOC(block.get(), impossible); }), noMemory);
    EXPECT_STREQ(block.get(), "kept");
}

TEST(Memory, DuplicatesTexts)
{
    const auto duplicate = [](auto... arguments) { return Buffer<char>(STRDUP(arguments...)); };
    EXPECT_EQ(duplicate(nullptr), nullptr);
    EXPECT_EQ(duplicate(nullptr, std::size_t{5}), nullptr);
    EXPECT_STREQ(duplicate("abcdef").get(), "abcdef");
    EXPECT_STREQ(duplicate("abcdef", std::size_t{3}).get(), "abc");
    EXPECT_STREQ(duplicate("abcdef", std::size_t{9}).get(), "abcdef");
    EXPECT_STREQ(duplicate("abcdef", std::size_t{0}).get(), "");
}

TEST(Memory, ReadsNoTextBeyondTheLengthGiven)
{
    const auto unterminated = makeBuffer<char>(4);
    std::memcpy(unterminated.get(), "wxyz", 4);
    EXPECT_STREQ(Buffer<char>(STRDUP(unterminated.get(), 4)).get(), "wxyz");
}

} // namespace
} // namespace Quillmoran
