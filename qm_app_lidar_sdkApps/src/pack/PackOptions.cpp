#include "pack/PackOptions.h"

#include "cli/QMCmdLine.h"
#include "common/coders/TransformUtils.h"
#include "model/ChannelNames.h"
#include "utils/program/Utils.h"
#include <vxunpack/Base.h>

#include <charconv>
#include <cstring>
#include <map>
#include <string>
#include <utility>

namespace Quillmoran::PackOptions {

namespace {

std::uint32_t parseNumber(const char* begin, const char* end, const char* option, const char* text)
{
    std::uint32_t value = 0;
    const auto [rest, error] = std::from_chars(begin, end, value);
    if (error != std::errc() || rest != end)
        QM_THROW(ErrorCode::General, "bad value '%s' of -%s", text, option);
    return value;
}

template <class Integer>
Integer narrow(std::uint32_t value, const char* option)
{
    const auto narrowed = static_cast<Integer>(value);
    if (narrowed != value)
        QM_THROW(ErrorCode::General, "the value %u of -%s is too large", value, option);
    return narrowed;
}

// "number" for all channels, or "channel=number"; parsed from the end, since the name of a channel may
// contain "=".
template <class Set>
void parseChoices(const QMCmdLine& cmdLine, const char* option, EncodeOptions& options, Set set)
{
    for (const std::string& value : Utils::getStrings(cmdLine, option)) {
        const char* const text = value.c_str();
        const char* const equals = std::strrchr(text, '=');
        const char* const number = equals ? equals + 1 : text;
        const std::uint32_t parsed = parseNumber(number, text + std::strlen(text), option, text);
        if (equals)
            set(options.byChannel[std::string(text, equals)], parsed);
        else
            set(options.all, parsed);
    }
}

std::uint8_t getVersion(const QMCmdLine& cmdLine, const char* option, std::uint8_t newest)
{
    return cmdLine.isPresent(option) ? narrow<std::uint8_t>(cmdLine.getUint(option), option) : newest;
}

} // namespace

void add(QMCmdLine& cmdLine)
{
    cmdLine.addString("prefer", nullptr,
                      "what to prefer in the choice of codings: size, balanced (default) or speed.\n"
                      "  'size' tries more codings on all points, which takes several times as long, 'speed' "
                      "writes files\n"
                      "  that are a few per cent larger and decoded faster",
                      false);
    cmdLine.setChoices("prefer", {"size", "balanced", "speed"});
    cmdLine.addStringArray(
        "t", "transform",
        "transform code, for all channels that support it or as <channel>=<code>.  May be repeated.\n"
        "  By default each channel gets the one of 10, 11, 13, 90, 91, 93, 70, 71 and 73 that "
        "is best for it",
        false, -1);
    cmdLine.addFlag("smooth", nullptr,
                    "choose among the transforms that smooth.  Coarse levels then hold averages, not points "
                    "of the input");
    cmdLine.addStringArray(
        "sb", "subblockSize",
        "samples per subblock, for all channels or as <channel>=<samples>.  May be repeated", false, -1);
    cmdLine.addUint("levels", nullptr,
                    "number of levels, 1 to 64.  By default the coarsest has about 512 points", false);
    cmdLine.addUint("pe", "pointsPerEntry", "points per box of the spatial index", false);
    cmdLine.addUint("fileVersion", nullptr, "version of the file, 1 to 4.  Default is 4, the newest", false);
    cmdLine.addUint("headerVersion", nullptr, "version of the wavelet header, 1 or 2.  Default is 2", false);
    cmdLine.addUint("indexVersion", nullptr, "version of the index, 1 or 2.  Default is 2", false);
    cmdLine.addUint("bandVersion", nullptr, "version of the subbands, 1 to 3.  Default is 3", false);
}

EncodeOptions get(const QMCmdLine& cmdLine)
{
    EncodeOptions options;
    options.all.smooth = cmdLine.getFlag("smooth");
    if (cmdLine.isPresent("prefer")) {
        const std::string preference = cmdLine.getString("prefer");
        options.prefer = preference == "size"    ? Preference::Size
                         : preference == "speed" ? Preference::Speed
                                                 : Preference::Balanced;
    }
    parseChoices(cmdLine, "transform", options, [](ChannelChoice& choice, std::uint32_t value) {
        choice.transform = narrow<TransformType>(value, "transform");
        try {
            TransformUtils::getCoder(*choice.transform);
        } catch (const Error&) {
            QM_THROW(ErrorCode::General, "there is no transform %u", value);
        }
    });
    parseChoices(cmdLine, "subblockSize", options,
                 [](ChannelChoice& choice, std::uint32_t value) { choice.subblockSize = value; });
    if (cmdLine.isPresent("levels"))
        options.numLevels = cmdLine.getUint("levels");
    if (cmdLine.isPresent("pointsPerEntry"))
        options.pointsPerEntry = cmdLine.getUint("pointsPerEntry");
    options.versions.file = getVersion(cmdLine, "fileVersion", options.versions.file);
    options.versions.header = getVersion(cmdLine, "headerVersion", options.versions.header);
    options.versions.index = getVersion(cmdLine, "indexVersion", options.versions.index);
    options.versions.band = getVersion(cmdLine, "bandVersion", options.versions.band);
    options.check();
    return options;
}

void resolveChannels(EncodeOptions& options, const PointInfo& layout)
{
    std::map<std::string, ChannelChoice> byChannel;
    for (const auto& [name, choice] : options.byChannel) {
        ChannelChoice& merged = byChannel[ChannelNames::require(name, layout, "the output").getName()];
        if (choice.transform)
            merged.transform = choice.transform;
        if (choice.subblockSize)
            merged.subblockSize = choice.subblockSize;
    }
    options.byChannel = std::move(byChannel);
}

} // namespace Quillmoran::PackOptions
