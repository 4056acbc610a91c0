// The functions that libFuzzer calls in the fuzzer of the target VX_TARGET.
#include "support/FuzzTarget.h"
#include "support/Mutator.h"

#include <cstdio>
#include <cstdlib>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

using namespace Quillmoran;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        Fuzz::handlesInput(VX_TARGET, {data, size});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ERROR: %s\n", error.what());
        std::abort();
    }
    return 0;
}

#ifdef VX_HAS_CHUNKS

// Changes a part by libFuzzer, which may also change its number of bytes, or cross it with another input.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed)
{
    // Some inputs are changed at random nevertheless, to damage lengths too.
    if (seed % 16 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    const auto change = [](Testing::Bytes& bytes, Testing::Random&) {
        const std::size_t length = bytes.size();
        bytes.resize(length + 64);
        bytes.resize(LLVMFuzzerMutate(bytes.data(), length, bytes.size()));
    };
    Testing::Bytes bytes = Testing::Mutator(seed, change).mutate({data, data + size});
    bytes.resize(std::min(bytes.size(), maxSize));
    std::copy(bytes.begin(), bytes.end(), data);
    return bytes.size();
}

#endif
