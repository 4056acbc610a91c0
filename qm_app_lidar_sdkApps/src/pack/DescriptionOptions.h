// The options of vxpack that change what a file says about its points, but not the points: -drop, -keep, -meta
// and -srs.
#pragma once

#include <vxunpack/Metadata.h>
#include <vxunpack/PointSource.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Quillmoran {

class QMCmdLine;

class DescriptionOptions
{
public:
    // Declares the options.
    static void add(QMCmdLine& cmdLine);
    // Reports usage errors.
    static void check(const QMCmdLine& cmdLine);

    // Throws General for a coordinate system that is not understood.
    explicit DescriptionOptions(const QMCmdLine& cmdLine);

    // Whether any of the options is present. '-srs same' is none.
    bool isPresent() const noexcept { return choosesChannels() || changesMetadata(); }
    bool choosesChannels() const noexcept { return m_dropped || m_kept; }
    bool changesMetadata() const noexcept { return m_wkt || !m_records.empty(); }
    // The coordinate system that the output gets.
    const std::optional<std::string>& getWKT() const noexcept { return m_wkt; }

    // The channels that are not dropped, in their order. Throws InvalidArgument for an unknown channel, and for
    // dropping a coordinate.
    PointInfo choose(const PointInfo& channels) const;
    // Replaces and removes records. Throws InvalidArgument for setting a record that is not text, LASRead for a
    // damaged LAS_Restore.
    void apply(Metadata& metadata) const;
    // The source with the coordinate system.
    Scoped<PointSource> apply(Scoped<PointSource> source) const;

private:
    std::optional<std::string> m_dropped, m_kept; // names of channels
    std::vector<std::pair<std::string, std::string>> m_records;
    std::optional<std::string> m_wkt;
};

} // namespace Quillmoran
