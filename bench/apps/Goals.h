// What writing is to reach beside LASzip. The tables mark what is met; nothing fails for what is not.
#pragma once

namespace Quillmoran::Benchmarks {

struct Goals
{
    static constexpr double sizeRatio = 1.40;    // at most
    static constexpr double oneThread = 0.4;     // of LASzip's speed, at least
    static constexpr double twoThreads = 0.75;   // likewise
    static constexpr double peakBytes = 200e6;   // below
    static constexpr double peakPoints = 10.5e6; // at which that holds: about 10 million
};

} // namespace Quillmoran::Benchmarks
