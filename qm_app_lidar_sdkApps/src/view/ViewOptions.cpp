#include "view/ViewOptions.h"

#include "cli/QMCmdLine.h"
#include "utils/program/Utils.h"
#include "view/Quantity.h"

#include <cmath>
#include <cstring>
#include <strings.h>

namespace Quillmoran {

namespace {

constexpr unsigned smallestSize = 16, largestSize = 16384; // pixels

struct NamedColor
{
    const char* name;
    Color color;
};
constexpr NamedColor colors[] = {{"white", {255, 255, 255}},
                                 {"black", {0, 0, 0}},
                                 {"gray", {128, 128, 128}},
                                 {"transparent", {255, 255, 255, 0}}};

// A name or six hexadecimal digits.
std::optional<Color> parseColor(const char* text)
{
    for (const NamedColor& each : colors)
        if (strcasecmp(each.name, text) == 0)
            return each.color;
    const char* const digits = text + (*text == '#');
    constexpr std::size_t numDigits = 6;
    if (std::strlen(digits) != numDigits || std::strspn(digits, "0123456789abcdefABCDEF") != numDigits)
        return std::nullopt;
    const unsigned long value = std::stoul(digits, nullptr, 16);
    return Color{static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8 & 0xFF),
                 static_cast<std::uint8_t>(value & 0xFF)};
}

std::optional<Corridor> getProfile(const QMCmdLine& cmdLine)
{
    if (!cmdLine.isPresent("profile"))
        return std::nullopt;
    const double* const values = cmdLine.getFloatArray("profile");
    return Corridor{values[0], values[1], values[2], values[3], values[4]};
}

} // namespace

void ViewOptions::add(QMCmdLine& cmdLine)
{
    cmdLine.addString("by", nullptr,
                      "what the colours show: color, elevation, hillshade, intensity, class, return,\n"
                      "  density, time, or the name of a channel.  By default the colours of the points, or\n"
                      "  the elevation",
                      false);
    cmdLine.setChoices("by", Quantity::listNames(), false);
    cmdLine.addString("view", nullptr,
                      "top (default), side: from the south, or profile with the numbers of -profile", false);
    cmdLine.setChoices("view", {"top", "side"});
    cmdLine.addFloatArray(
        "profile", nullptr,
        "cross-section: the points at most WIDTH / 2 from the line between two points on the\n"
        "  ground, from the right of the line",
        false, 5);
    cmdLine.addUint("size", nullptr, "pixels of the longer side, without the legend.  Default is 1024",
                    false);
    Utils::addCropOption(cmdLine);
    Utils::addSubsampleOption(cmdLine);
    cmdLine.addString("background", nullptr,
                      "colour of areas without points: white (default), black, gray, transparent, or six\n"
                      "  hexadecimal digits",
                      false);
    cmdLine.setChoices("background", {"white", "black", "gray", "transparent"}, false);
    cmdLine.addFlag("noLegend", nullptr, "draw only the points");
}

void ViewOptions::check(const QMCmdLine& cmdLine)
{
    Utils::checkQueryOptions(cmdLine);
    if (cmdLine.isPresent("size")) {
        const unsigned size = cmdLine.getUint("size");
        if (size < smallestSize || size > largestSize)
            cmdLine.usageError("the value of -size must be between %u and %u", smallestSize, largestSize);
    }
    if (cmdLine.isPresent("background") && !parseColor(cmdLine.getString("background")))
        cmdLine.usageError("unknown colour '%s' of -background", cmdLine.getString("background"));
    if (cmdLine.isPresent("profile") && cmdLine.isPresent("view"))
        cmdLine.usageError("-profile and -view exclude each other");
    if (const auto line = getProfile(cmdLine)) {
        if (!(line->length() > 0) || !std::isfinite(line->length()))
            cmdLine.usageError("the two points of -profile must differ");
        if (!(line->width > 0))
            cmdLine.usageError("the width of -profile must be above 0");
    }
}

ViewOptions ViewOptions::get(const QMCmdLine& cmdLine)
{
    ViewOptions options;
    options.profile = getProfile(cmdLine);
    const bool isSide = cmdLine.isPresent("view") && std::strcmp(cmdLine.getString("view"), "side") == 0;
    options.view = options.profile || isSide ? View::Section : View::Top;
    if (cmdLine.isPresent("by"))
        options.by = cmdLine.getString("by");
    options.box = Utils::getCropBox(cmdLine);
    if (cmdLine.isPresent("subsample"))
        options.fraction = Utils::getFraction(cmdLine);
    if (cmdLine.isPresent("size"))
        options.size = cmdLine.getUint("size");
    if (cmdLine.isPresent("background"))
        options.background = *parseColor(cmdLine.getString("background"));
    options.hasLegend = !cmdLine.getFlag("noLegend");
    return options;
}

} // namespace Quillmoran
