// Compares all points of a compressed file, its index and its description with the digests in the file. Unlike
// a reader, it reports every difference.
#pragma once

#include "common/container/Digest.h"
#include "decode/container/WaveletDecoderInfo.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Quillmoran {

class DigestCheck
{
public:
    // Compares the index and the description. The file is borrowed.
    explicit DigestCheck(const WaveletDecoderInfo& file);

    // Adds the next points of the file, in the layout of the file.
    void add(const PointData& block, std::size_t count);
    // After the last point.
    void finish();

    // The number of digests that were compared; 0 if the file has none.
    std::uint64_t getNumDigests() const noexcept { return m_numDigests; }
    // One sentence each; empty for a sound file.
    const std::vector<std::string>& getProblems() const noexcept { return m_problems; }

private:
    template <class Verify>
    void compare(Verify verify);

    const WaveletDecoderInfo& m_file;
    const StoredDigests::Samples* m_stored = nullptr; // of the file
    std::vector<ChannelDigests> m_decoded;            // by channel, if m_stored is not null
    std::uint64_t m_numDigests = 0;
    std::vector<std::string> m_problems;
};

} // namespace Quillmoran
