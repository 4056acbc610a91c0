// By default the sanitizers terminate the process for sizes that malloc rejects.
extern "C" __attribute__((visibility("default"), used)) const char* __asan_default_options();
extern "C" __attribute__((visibility("default"), used)) const char* __tsan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

TEST(Error, AppendsTextAndTruncatesItAfter1023Bytes)
{
    Error error("dir/file.cpp", "function", 1, -1);
    EXPECT_STREQ(error.what(), "");
    error("%s", std::string(1000, 'a').c_str())("%d%s", 7, std::string(5000, 'b').c_str())("lost");
    EXPECT_EQ(error.what(), std::string(1000, 'a') + '7' + std::string(22, 'b'));
    EXPECT_EQ(errorOf(5, [] { QM_THROW(static_cast<ErrorCode>(5), "%s", std::string(3000, '%').c_str()); }),
              std::string(1023, '%'));
}

TEST(Memory, ReportsImpossibleSizesAsOutOfMemory)
{
    const std::string noMemory = std::strerror(ENOMEM);
    const Buffer<char> block(STRDUP("kept"));
    EXPECT_EQ(errorOf(ENOMEM, [] { XALLOC(SIZE_MAX / 2); }), noMemory);
    EXPECT_EQ(errorOf(ENOMEM, [&] { XREALLOC(block.get(), SIZE_MAX / 2); }), noMemory);
    EXPECT_STREQ(block.get(), "kept");
    // The product of count and size would overflow to a small number.
    EXPECT_EQ(errorOf(ENOMEM, [] { makeBuffer<double>(SIZE_MAX / 8 + 2); }), noMemory);
}

}} // namespace Quillmoran::Testing
