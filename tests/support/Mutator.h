// Damages files at random. A compressed file mostly remains well-formed: lengths agree, chunks keep their
// order, every channel has its bands. With only random bytes the container code would reject nearly all files
// before they reach the coders.
#pragma once

#include "support/Random.h"
#include "support/VX7Chunks.h"

#include <functional>

namespace Quillmoran::Testing {

// Flips a bit, sets bytes, sets a number of any width to one of its limits, or removes, repeats or moves a
// range.
void changeBytes(Bytes& bytes, Random& random);

class Mutator
{
public:
    // The changer damages a part of a file, whose length it may change.
    using Changer = std::function<void(Bytes&, Random&)>;
    explicit Mutator(std::uint64_t seed, Changer changer = changeBytes)
        : m_random(seed), m_changer(std::move(changer))
    {}

    // Returns the file with one to three changes.
    Bytes mutate(Bytes bytes);

private:
    using Chunk = VX7Chunks::Chunk;

    void changeChunks();
    void changeLevels(std::uint8_t* lastLevel); // the field of the header
    void shuffleChunks();
    void changeBand(Chunk& chunk);
    Chunk& pick() { return m_file.chunks[m_random.below(m_file.chunks.size())]; }

    VX7Chunks m_file;
    Random m_random;
    Changer m_changer;
};

} // namespace Quillmoran::Testing
