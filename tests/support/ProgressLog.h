// Records what an operation reports, and cancels it where a test asks for it.
#pragma once

#include <vxunpack/ProgressDelegate.h>

#include <climits>
#include <string>
#include <vector>

namespace Quillmoran::Testing {

struct ProgressLog final : ProgressDelegate
{
    // Cancels at the query with this index; by default never.
    explicit ProgressLog(int cancelAt = INT_MAX) : queriesLeft(cancelAt) {}

    void reportProgress(double fraction, const char* message) override
    {
        fractions.push_back(fraction);
        if (activities.empty() || activities.back() != message)
            activities.emplace_back(message);
    }
    bool getCancelled() override { return queriesLeft-- <= 0; }
    void displayWarning(const char* text) override { warnings.emplace_back(text); }

    double last() const { return fractions.empty() ? 0 : fractions.back(); }

    std::vector<double> fractions;
    std::vector<std::string> activities; // each change of the message
    std::vector<std::string> warnings;
    int queriesLeft;
};

} // namespace Quillmoran::Testing
