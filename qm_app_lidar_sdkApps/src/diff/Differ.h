// vxdiff: opens two inputs, compares them and writes one report.
#pragma once

#include "diff/DiffReport.h"
#include "utils/program/Program.h"

namespace Quillmoran {

class ProgressDelegate;

class Differ final : public Program
{
public:
    // 1 means that the inputs differ.
    static constexpr int errorStatus = 2;

    Differ();

private:
    void checkOptions() const override;
    // Returns whether the inputs are equal.
    bool work() override;
    DiffReport compare(ProgressDelegate& progress) const;
};

} // namespace Quillmoran
