#include "cli/QMCmdLine.h"
#include "files/QMFileUtils.h"
#include "files/RemoteName.h"
#include "text/FieldFormat.h"
#include "utils/program/Program.h"
#include "utils/program/Utils.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace Quillmoran::Utils {

namespace {

const char* describeOutFields()
{
    static const std::string text =
        std::string("Output specific fields.  By default output all those supported by "
                    "output format and are in the input file.\n"
                    "Parse format: \n") +
        fieldLetters;
    return text.c_str();
}

constexpr unsigned maxDepth = 1000; // of directories, beyond the limits of file systems

struct Axis
{
    const char* name;
    Bounds::Range Bounds::*range;
};
constexpr Axis axes[] = {{"x", &Bounds::x}, {"y", &Bounds::y}, {"z", &Bounds::z}};

std::string toText(const Bounds& box)
{
    std::string text;
    for (const auto& [name, range] : axes) {
        char part[80];
        std::snprintf(part, sizeof part, "%s%s %.10g to %.10g", text.empty() ? "" : ", ", name,
                      (box.*range).min, (box.*range).max);
        text += part;
    }
    return text;
}

std::string explainEmptyOutput(const QMCmdLine& cmdLine, const PointSource& source,
                               const std::vector<std::string>& filters)
{
    const Bounds bounds = source.getBounds(); // a text file also counts its points for this
    if (source.getNumPoints() == 0)
        return "the input has no points";
    const bool isCropped = cmdLine.isPresent("crop");
    const Bounds box = getCropBox(cmdLine);
    if (isCropped && bounds.x.min <= bounds.x.max && !box.meets(bounds))
        return "the crop box (" + toText(box) + ") is outside the bounds of the input (" + toText(bounds) +
               ")";
    const std::string crop = isCropped ? " in the crop box (" + toText(box) + ")" : "";
    if (!filters.empty()) {
        std::string all;
        for (const std::string& filter : filters)
            all += (all.empty() ? "'" : " and '") + filter + "'";
        return "no point" + crop + " passes " +
               (filters.size() == 1 ? "the filter " + all : "all of the filters " + all);
    }
    if (cmdLine.isPresent("subsample"))
        return "subsampling skipped all points" + crop;
    return isCropped ? "the input has no points" + crop : "the input gave no points";
}

} // namespace

void addOutFieldsOption(QMCmdLine& cmdLine)
{
    cmdLine.addString("ofld", "outFields", describeOutFields(), false);
}

void addSubsampleOption(QMCmdLine& cmdLine)
{
    cmdLine.addFloat(
        "s", "subsample",
        "subsample, taking every n-th point.  -s 2 leaves one half the file, -s 3 leaves one third.", false);
}

void addCropOption(QMCmdLine& cmdLine)
{
    cmdLine.addFloatArray(
        "c", "crop",
        "crop to specified box (world coordinates:  x-min, x-max, y-min, y-max, z-min, z-max).\n"
        "  A value of -inf (for a minimum) or +inf (maximum) means no-crop in that direction",
        false, 6);
}

PointInfo getOutFields(const QMCmdLine& cmdLine, const PointSource& source, bool acceptsNames)
{
    PointInfo layout = source.getPointInfo();
    if (!cmdLine.isPresent("outFields"))
        return layout;
    if (acceptsNames)
        FieldFormat::parseColumns(cmdLine.getString("outFields"), layout, source.getPointInfo());
    else
        FieldFormat::parse(cmdLine.getString("outFields"), layout, source.getPointInfo());
    return layout;
}

double getFraction(const QMCmdLine& cmdLine)
{
    return cmdLine.isPresent("subsample") ? 1.0 / cmdLine.getFloat("subsample") : 1.0;
}

Bounds getCropBox(const QMCmdLine& cmdLine)
{
    Bounds box = Bounds::Huge();
    if (!cmdLine.isPresent("crop"))
        return box;
    std::size_t count = 0;
    const double* values = cmdLine.getFloatArray("crop", count);
    if (count >= 4) {
        box.x = {values[0], values[1]};
        box.y = {values[2], values[3]};
    }
    if (count >= 6)
        box.z = {values[4], values[5]};
    return box;
}

void checkQueryOptions(const QMCmdLine& cmdLine)
{
    const double step = cmdLine.getFloat("subsample");
    if (cmdLine.isPresent("subsample") && (!(step > 0) || std::isinf(step)))
        cmdLine.usageError("the value of -subsample must be a number above 0");
    const Bounds box = getCropBox(cmdLine);
    for (const auto& [name, range] : axes)
        if (!((box.*range).min <= (box.*range).max))
            cmdLine.usageError("the box of -crop is inverted: %s-min %g is greater than %s-max %g", name,
                               (box.*range).min, name, (box.*range).max);
}

void warnOfEmptyOutput(const QMCmdLine& cmdLine, const PointSource& source, const std::string& output,
                       const std::vector<std::string>& filters)
{
    warn("no points were written to '" + output + "': " + explainEmptyOutput(cmdLine, source, filters));
}

void addInputFormatOption(QMCmdLine& cmdLine)
{
    cmdLine.addString("if", "inputFormat",
                      "format of the inputs: vxl, las, laz, bpf, list, index or txt.  By default files are "
                      "recognised by\n  their names, and pipes by their contents",
                      false);
    cmdLine.setChoices("if", {"vxl", "las", "laz", "bpf", "list", "index", "txt"});
}

void checkInputs(const QMCmdLine& cmdLine)
{
    const std::vector<std::string> names = getStrings(cmdLine, "inputFile");
    if (std::count(names.begin(), names.end(), "-") > 1)
        cmdLine.usageError("standard input ('-') can be given only once");
}

std::string nameOutput(const QMCmdLine& cmdLine, const std::string& input, const char* ending)
{
    std::filesystem::path path = RemoteName::withoutQuery(input);
    if (RemoteName::isRemote(input))
        path = path.filename();
    std::string output = path.replace_extension(ending);
    refuseSameFile(input.c_str(), output.c_str());
    if (QMFileUtils::exists(output.c_str()) && !cmdLine.getFlag("force"))
        QM_THROW(ErrorCode::General, "the output '%s' exists; -f replaces it", output.c_str());
    return output;
}

Input openInput(const QMCmdLine& cmdLine, const std::string& name)
{
    return openInput(name.c_str(), cmdLine.isPresent("if") ? cmdLine.getString("if") : nullptr);
}

void addDepthOption(QMCmdLine& cmdLine)
{
    cmdLine.addUint("d", "depth", "levels of directories below a given one to look into.  Default is 0",
                    false);
}

int getDepth(const QMCmdLine& cmdLine)
{
    return static_cast<int>(std::min(cmdLine.getUint("depth"), maxDepth));
}

int getBatchDepth(const QMCmdLine& cmdLine)
{
    return cmdLine.isPresent("depth") ? getDepth(cmdLine) : static_cast<int>(maxDepth);
}

void addBatchOptions(QMCmdLine& cmdLine, const char* description)
{
    cmdLine.addString("od", "outputDirectory", description, false);
    cmdLine.addFlag("f", "force", "replace files that exist, and convert files that are up to date");
}

void addNamed(FilePointSourceManager& files, const QMCmdLine& cmdLine)
{
    for (const std::string& name : getStrings(cmdLine, "inputFile"))
        if (name == "-")
            addInput(files, openInput("-", "list"), 0);
        else
            addInput(files, name.c_str(), getDepth(cmdLine));
}

void refuseNamed(const QMCmdLine& cmdLine, const char* output)
{
    for (const std::string& name : getStrings(cmdLine, "inputFile"))
        refuseSameFile(name.c_str(), output);
}

} // namespace Quillmoran::Utils
