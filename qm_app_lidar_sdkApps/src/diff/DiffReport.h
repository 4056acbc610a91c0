// The results of vxdiff, to be written as text or JSON.
#pragma once

#include "diff/ExactNumber.h"
#include <vxunpack/Bounds.h>
#include <vxunpack/DataType.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Quillmoran {

struct DiffReport
{
    static constexpr std::size_t maxShown = 3; // first differences of a channel, first points of a cloud

    struct Cloud
    {
        std::string name;
        std::uint64_t numPoints = 0; // that were read
        std::int64_t numBytes = 0;   // of the files
        Bounds bounds;               // of these points
    };

    struct Channel // with different types, or in one cloud only
    {
        std::string name;
        std::optional<DataType> a, b;
    };

    struct Axis // whose bounds differ
    {
        std::string name;
        Bounds::Range a, b;
    };

    enum class Systems // coordinate systems
    {
        Same, // or both unknown
        Different,
        OnlyA,
        OnlyB
    };

    struct ClassName
    {
        std::size_t code;
        std::optional<std::string> a, b;
    };

    struct Record // of the metadata
    {
        std::string key;
        bool isInA, isInB; // both: with other values
    };

    // The samples of a channel in the points with the same index.
    struct Samples
    {
        struct Pair
        {
            std::uint64_t point;
            Sample a, b;
        };

        std::string name;
        std::uint64_t numDifferent = 0;
        // The largest |a - b|, ignoring NaNs; NaN if all differences have one.
        Sample largest;
        std::vector<Pair> first;
    };

    // The points that the other cloud does not have, or not as many times.
    struct Surplus
    {
        struct Point
        {
            std::uint64_t index;
            std::vector<Sample> samples; // of all compared channels
        };

        std::uint64_t numPoints = 0;
        std::vector<Point> first;
    };

    Cloud a, b;
    std::vector<std::string> channels; // that were compared
    std::vector<Channel> layout;
    std::vector<Axis> bounds;
    Systems coordinateSystems = Systems::Same;
    std::vector<ClassName> classNames;
    std::vector<Record> metadata;
    bool isUnordered = false;
    std::vector<Samples> samples;   // of each channel with differences, in order
    Surplus onlyA, onlyB;           // unordered
    std::vector<std::string> notes; // what differs and does not count

    bool isEqual() const
    {
        return a.numPoints == b.numPoints && layout.empty() && bounds.empty() &&
               coordinateSystems == Systems::Same && classNames.empty() && metadata.empty() &&
               samples.empty() && onlyA.numPoints == 0 && onlyB.numPoints == 0;
    }
};

} // namespace Quillmoran
