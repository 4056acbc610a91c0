// A fuzz target handles one kind of untrusted input as a program would. libFuzzer calls one of them
// (FuzzEntry.cpp); the tests call all of them, with stored inputs (replay.cpp) and with damaged files
// (DamageTest.cpp).
#pragma once

#include "support/ByteStore.h"
#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include "support/TemporaryDirectory.h"

#include <span>

namespace Quillmoran::Fuzz {

using namespace Testing;
using Input = std::span<const std::uint8_t>;

// Each returns the number of samples decoded, for which the limits allow additional time.
using Target = std::uint64_t(Input);
Target runCommandLine, runContainer, runHTTP, runLAS, runList, runMetadata, runPack, runRTree, runSubblocks,
    runText, runTileSet;

// Runs a target, and returns false if it refuses the input with an Error. Any other exception, a memory fault,
// and more memory or time than docs/robustness.md promises are faults of the code.
bool handlesInput(const std::string& target, Input input);

// An input has shown a fault.
struct Finding : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

// Throws a Finding unless the condition holds: for properties that every input must have.
inline void require(bool condition, const char* text)
{
    if (!condition)
        throw Finding(text);
}

// Splits an input. There are zeros after its end.
class InputReader
{
public:
    explicit InputReader(Input input) : m_rest(input) {}

    Input takeBytes(std::size_t count)
    {
        const Input bytes = m_rest.first(std::min(count, m_rest.size()));
        m_rest = m_rest.subspan(bytes.size());
        return bytes;
    }
    template <class T>
    T take()
    {
        T value{};
        const Input bytes = takeBytes(sizeof value);
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<std::uint8_t*>(&value));
        return value;
    }
    // Reads to the end of the line, and skips that. Ends at a NUL, as texts from users do.
    std::string takeLine()
    {
        const auto end = std::find(m_rest.begin(), m_rest.end(), '\n');
        const Input line = takeBytes(static_cast<std::size_t>(end - m_rest.begin()));
        takeBytes(1);
        return std::string(line.begin(), line.end()).c_str();
    }
    Input rest() const { return m_rest; }

private:
    Input m_rest;
};

inline Scoped<ByteStore> storeOf(Input input)
{
    return Scoped<ByteStore>(ByteStore::create({input.begin(), input.end()}));
}

// The buffer is small, so that fields cross its end.
struct InputStream : StreamReader
{
    explicit InputStream(Input input) { init(storeOf(input).get(), true, 64); }
};

// Returns the path of a file with the input.
inline std::string storeInput(Input input, const char* name)
{
    static const TemporaryDirectory directory;
    // A new file each time: some file systems write a file that replaces another to disk at once.
    std::filesystem::remove(directory / name);
    return directory.file(name, std::string(input.begin(), input.end()));
}

// Returns false if the body ends with an Error: other queries may succeed.
template <class Body>
bool succeeds(const Body& body)
{
    try {
        body();
        return true;
    } catch (const Error&) {
        return false;
    }
}

// Reads points up to a limit, since a small input can claim billions, and returns their number. After an error
// a caller may ask again.
inline std::uint64_t readPoints(const PointSource& source, const Bounds& bounds, double fraction,
                                const PointInfo& layout)
{
    constexpr std::size_t blockPoints = 512, limit = 4096;
    const Scoped<PointIterator> iterator(source.createIterator(bounds, fraction, layout, nullptr));
    PointData block;
    block.init(layout, blockPoints);
    std::uint64_t count = 0;
    try {
        for (std::size_t got = 1; got != 0 && count < limit; count += got)
            got = iterator->getNextPoints(block);
    } catch (const Error&) {
        succeeds([&] { iterator->getNextPoints(block); });
        throw;
    }
    return count;
}

// Asks for everything but points. The metadata may be damaged while the points are not.
inline void describe(const PointSource& source)
{
    source.getWKT();
    source.getScale();
    std::string names;
    for (std::size_t i = 0; i < source.getNumClassIdNames(); ++i)
        names += source.getClassIdNames()[i] ? source.getClassIdNames()[i] : "";
    for (const bool all : {false, true}) {
        Metadata metadata;
        succeeds([&] { source.loadMetadata(metadata, all); });
    }
}

// A part of a box: the lower half of x, the upper two thirds of y.
inline Bounds partOf(const Bounds& bounds)
{
    Bounds part = bounds;
    part.x.max = bounds.x.min + (bounds.x.max - bounds.x.min) / 2;
    part.y.min = bounds.y.min + (bounds.y.max - bounds.y.min) / 3;
    return part;
}

} // namespace Quillmoran::Fuzz
