// The functions that libFuzzer calls in the fuzzer of the target VX_TARGET.
#include "support/FuzzTarget.h"
#include "support/Mutator.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

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

namespace {

using Testing::Bytes;

// Its number of bytes may change.
void changeByLibFuzzer(Bytes& bytes, Testing::Random&)
{
    const std::size_t size = bytes.size();
    bytes.resize(size + 64);
    bytes.resize(LLVMFuzzerMutate(bytes.data(), size, bytes.size()));
}

std::size_t store(const Bytes& bytes, std::uint8_t* out, std::size_t maxSize)
{
    const std::size_t size = std::min(bytes.size(), maxSize);
    if (size != 0)
        std::memcpy(out, bytes.data(), size);
    return size;
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed)
{
    // Some inputs are changed at random nevertheless, to damage lengths too.
    if (seed % 16 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    return store(Testing::Mutator(seed, changeByLibFuzzer).mutate({data, data + size}), data, maxSize);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t aSize,
                                                 const std::uint8_t* b, std::size_t bSize, std::uint8_t* out,
                                                 std::size_t maxSize, unsigned seed)
{
    return store(Testing::Mutator(seed, changeByLibFuzzer).mix({a, a + aSize}, {b, b + bSize}), out, maxSize);
}

#endif
