#include "diff/DiffText.h"

#include "text/Printable.h"

#include <algorithm>
#include <cstdio>

namespace Quillmoran {

namespace {

constexpr std::size_t maxLines = 20; // of a section; a file can have thousands of records

// The name of a channel or a record, padded.
std::string line(const std::string& name, const std::string& text)
{
    std::string padded = "   " + printable(name);
    constexpr std::size_t column = 24;
    padded.resize(std::max(padded.size(), column), ' ');
    return padded + ' ' + text + '\n';
}

// A title and a line for each element, if there are any.
template <class Elements, class ToLine>
std::string section(const char* title, const Elements& elements, ToLine toLine)
{
    if (elements.empty())
        return "";
    std::string text = std::string(title) + ":\n";
    const std::size_t shown = std::min(elements.size(), maxLines);
    for (std::size_t i = 0; i < shown; ++i)
        text += toLine(elements[i]);
    if (shown < elements.size())
        text += "   and " + std::to_string(elements.size() - shown) + " more\n";
    return text;
}

std::string countOf(std::uint64_t count, const char* what)
{
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

// Without -0.
std::string describeRange(const Bounds::Range& range)
{
    return range.min > range.max ? "none"
                                 : toText(Sample(range.min + 0.0)) + " to " + toText(Sample(range.max + 0.0));
}

std::string describePoints(const DiffReport& report)
{
    std::string text;
    if (report.a.numPoints != report.b.numPoints) {
        text = "   " + std::to_string(report.a.numPoints) + " in A, " + std::to_string(report.b.numPoints) +
               " in B";
        if (!report.isUnordered)
            text += "; the first " + std::to_string(std::min(report.a.numPoints, report.b.numPoints)) +
                    " are compared";
        text += '\n';
    }
    for (const auto* surplus : {&report.onlyA, &report.onlyB}) {
        if (surplus->numPoints == 0)
            continue;
        text += "   " + countOf(surplus->numPoints, "point") + " only in " +
                (surplus == &report.onlyA ? "A" : "B") + ":\n";
        for (const auto& point : surplus->first) {
            text += "      " + std::to_string(point.index) + ':';
            for (std::size_t i = 0; i < point.samples.size(); ++i)
                text += ' ' + printable(report.channels[i]) + '=' + toText(point.samples[i]);
            text += '\n';
        }
    }
    return text.empty() ? "" : "Points:\n" + text;
}

std::string describeChannel(const DiffReport::Channel& channel)
{
    const auto nameOf = [](const std::optional<DataType>& type) {
        return std::string(DataTypeUtils::toString(*type));
    };
    return line(channel.name, channel.a && channel.b
                                  ? nameOf(channel.a) + " in A, " + nameOf(channel.b) + " in B"
                              : channel.a ? "only in A"
                                          : "only in B");
}

std::string describeClassName(const DiffReport::ClassName& name)
{
    const auto quoted = [](const std::optional<std::string>& text) {
        return text ? '\'' + printable(*text) + '\'' : "no name";
    };
    return line(std::to_string(name.code), quoted(name.a) + " in A, " + quoted(name.b) + " in B");
}

std::string describeRecord(const DiffReport::Record& record)
{
    return line(record.key, record.isInA && record.isInB ? "differs"
                            : record.isInA               ? "only in A"
                                                         : "only in B");
}

// Of a difference of rounded numbers, few digits are meaningful.
std::string describeDifference(const Sample& difference)
{
    const auto* const real = std::get_if<double>(&difference);
    if (!real)
        return toText(difference);
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", *real);
    return text;
}

std::string describeSamples(const DiffReport::Samples& samples)
{
    std::string text = line(samples.name, countOf(samples.numDifferent, "difference") + ", at most " +
                                              describeDifference(samples.largest));
    for (const auto& pair : samples.first)
        text += "      point " + std::to_string(pair.point) + ": " + toText(pair.a) + " in A, " +
                toText(pair.b) + " in B\n";
    return text;
}

} // namespace

std::string toText(const DiffReport& report, bool notes)
{
    std::string text;
    if (report.isEqual()) {
        text = "equal: " + countOf(report.a.numPoints, "point") + ", " +
               countOf(report.channels.size(), "channel") + '\n';
    } else {
        text = "different:\n   A: " + printable(report.a.name) + "\n   B: " + printable(report.b.name) + '\n';
        text += section("Channels", report.layout, describeChannel);
        using Systems = DiffReport::Systems;
        const Systems systems = report.coordinateSystems;
        if (systems != Systems::Same)
            text += std::string("Coordinate System:\n   ") + (systems == Systems::OnlyA   ? "only in A\n"
                                                              : systems == Systems::OnlyB ? "only in B\n"
                                                                                          : "different\n");
        text += section("Class Names", report.classNames, describeClassName);
        text += section("Metadata", report.metadata, describeRecord);
        text += describePoints(report);
        text += section("Bounds", report.bounds, [](const DiffReport::Axis& axis) {
            return line(axis.name, describeRange(axis.a) + " in A, " + describeRange(axis.b) + " in B");
        });
        text += section("Samples", report.samples, describeSamples);
    }
    if (notes)
        text += section("Notes", report.notes,
                        [](const std::string& note) { return "   " + printable(note) + '\n'; });
    return text;
}

} // namespace Quillmoran
