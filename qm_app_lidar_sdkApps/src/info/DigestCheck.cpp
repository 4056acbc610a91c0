#include "info/DigestCheck.h"

#include <vxunpack/Base.h>

namespace Quillmoran {

namespace {

constexpr std::uint64_t maxReported = 20; // blocks

} // namespace

DigestCheck::DigestCheck(const WaveletDecoderInfo& file) : m_file(file)
{
    if (!file.hasGoodBandTable())
        m_problems.emplace_back("the table of the bands: sizes differ");
    const StoredDigests& digests = file.getDigests();
    const std::size_t numChannels = file.getNumPointChannels();
    compare([&] { m_stored = digests.getSamples(file.getNumPoints(), numChannels); });
    if (!m_stored && !digests.exist())
        return;
    m_numDigests = 2;
    compare([&] { digests.verifyDescription(); });
    compare([&] { digests.verifyIndex(); });
    for (std::size_t i = 0; m_stored && i < numChannels; ++i)
        m_decoded.emplace_back(m_stored->blockBits);
}

// Reports a difference once: without the stored digests, each comparison reports their damage.
template <class Verify>
void DigestCheck::compare(Verify verify)
{
    try {
        verify();
    } catch (const Error& error) {
        if (error.code() != ErrorCode::DigestDiffers)
            throw;
        if (m_problems.empty() || m_problems.back() != error.what())
            m_problems.emplace_back(error.what());
    }
}

void DigestCheck::add(const PointData& block, std::size_t count)
{
    for (std::size_t i = 0; i < m_decoded.size(); ++i)
        m_decoded[i].add(block.getChannel(i), count);
}

void DigestCheck::finish()
{
    std::uint64_t numDiffering = 0;
    for (std::size_t i = 0; i < m_decoded.size(); ++i) {
        m_decoded[i].finish();
        const std::vector<std::uint64_t>& blocks = m_decoded[i].getBlocks();
        m_numDigests += blocks.size();
        for (std::size_t block = 0; block < m_stored->numBlocks; ++block) {
            const auto index = static_cast<std::int64_t>(block);
            if (block < blocks.size() && blocks[block] == m_stored->get(i, index))
                continue;
            if (++numDiffering <= maxReported)
                m_problems.push_back(
                    m_stored->describe(m_file.getPointInfo().getChannel(i).getName(), index));
        }
    }
    if (numDiffering > maxReported)
        m_problems.push_back("and " + std::to_string(numDiffering - maxReported) + " more blocks");
}

} // namespace Quillmoran
