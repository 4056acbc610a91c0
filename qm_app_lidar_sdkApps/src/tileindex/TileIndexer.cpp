#include "tileindex/TileIndexer.h"

#include "files/QMFileUtils.h"
#include "tileindex/TileReport.h"
#include "utils/program/ConsoleProgress.h"
#include "utils/program/Summary.h"
#include "utils/program/Utils.h"
#include "utils/sets/Make.h"
#include "utils/sets/TileSet.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/PersistentPointSourceWriter.h>
#include <vxunpack/ProgressDelegate.h>

#include <cstdio>
#include <set>

namespace Quillmoran {

namespace {

constexpr char description[] = "Builds, updates and lists spatial indexes of LiDAR files";

// Links in directories resolved, so that paths of one file compare equal.
std::string resolved(const std::string& path)
{
    return QMFileUtils::resolve(path.c_str()).c_str();
}

} // namespace

TileIndexer::TileIndexer() : Program("vxindex", description)
{
    m_cmdLine.setExamples("-o TILES.index INPUT... [OPTION...]",
                          {{"vxindex -o tiles.index tiles/", "indexes the files of a directory"},
                           {"vxindex -o tiles.index -u", "updates the index after files have changed"},
                           {"vxindex -o tiles.index -check", "lists the files and compares each of them"}});
    m_cmdLine.addString("o", "index", "name of the index file, ending in .index", true);
    m_cmdLine.addStringArray("i", "inputFile", "file, list of files or directory to index; may be repeated",
                             false, -1);
    m_cmdLine.setExtra("i");
    Utils::addDepthOption(m_cmdLine);
    m_cmdLine.addFlag("u", "update",
                      "update an existing index: add new files, read changed ones again, drop missing ones");
    m_cmdLine.addFlag("l", "list", "list the files of an index, and which of them were changed since");
    m_cmdLine.addFlag("check", nullptr, "list the files of an index and open each of them to compare");
    m_cmdLine.addString("srs", nullptr,
                        "spatial reference of the whole set, or 'same' to refuse files with different ones",
                        false);
    Utils::addGPSWeekOption(m_cmdLine);
    m_cmdLine.addString("overview", nullptr, "file with an even sample of the points of all files", false);
    m_cmdLine.addFloat("overviewFraction", nullptr,
                       "fraction of the points in that file, above 0 and at most 1.  By default it is "
                       "computed from the numbers of points",
                       false);
    m_cmdLine.addFlag("createOverview", nullptr,
                      "write the file of -overview, VX7, LAS or LAZ, from the indexed files.  Its fraction "
                      "is 1/16 by default");
    m_cmdLine.setChoices("srs", {"same"}, false);
    m_cmdLine.addFlag("removeOverview", nullptr, "remove the overview from the index, but not its file");
    Utils::addTXTPointReaderOptions(m_cmdLine);
    Utils::addWaveformOption(m_cmdLine);
}

void TileIndexer::checkOptions() const
{
    Utils::checkInputs(m_cmdLine);
    if (m_cmdLine.isPresent("overviewFraction") &&
        !isOverviewFraction(m_cmdLine.getFloat("overviewFraction")))
        m_cmdLine.usageError("the value of -overviewFraction must be above 0 and at most 1");
}

bool TileIndexer::work()
{
    Utils::setTextOptions(*m_opener, true, m_cmdLine);
    Utils::handleWaveformOption(m_cmdLine, *m_opener);
    // The files of a new index are named by the user, or by a list that is read with an opener of its own.
    const bool readsIndex =
        m_cmdLine.getFlag("list") || m_cmdLine.getFlag("check") || m_cmdLine.getFlag("update");
    m_opener->setAllowsRemote(!readsIndex || m_cmdLine.getFlag("allowRemote"));
    // Other names would not be opened as an index, and might belong to a tile.
    if (Utils::getPointSourceType(m_cmdLine.getString("index")) != POINT_SOURCE_INDEX)
        QM_THROW(ErrorCode::General, "the name of an index must end in '.index': '%s'",
                 m_cmdLine.getString("index"));
    if (m_cmdLine.getFlag("list") || m_cmdLine.getFlag("check"))
        report();
    else
        build();
    if (m_cmdLine.getFlag("verbose"))
        Utils::printHeader(
            stdout,
            *openMosaic(*make<PersistentPointSourceManager>(m_cmdLine.getString("index"), m_opener.get())),
            nullptr);
    return true;
}

void TileIndexer::report() const
{
    const auto index = make<PersistentPointSourceManager>(m_cmdLine.getString("index"), m_opener.get());
    printTiles(stdout, *index, m_cmdLine.getFlag("check") ? m_opener.get() : nullptr);
    Utils::finishReport();
}

void TileIndexer::build() const
{
    Utils::ignoreWriteSignals();
    const char* index = m_cmdLine.getString("index");
    const Scoped<PersistentPointSourceWriter> writer(PersistentPointSourceWriter::create());
    if (m_cmdLine.getFlag("update"))
        writer->init(index, m_opener.get());
    else
        writer->init(m_opener.get());
    const Utils::MergeOptions merge = Utils::getMergeOptions(m_cmdLine);
    if (merge.gpsWeek)
        writer->setGPSWeek(*merge.gpsWeek);

    const std::vector<std::string> inputs = collectInputs(); // until here an interrupt ends the program
    Utils::ProgressLine delegate("files");
    Utils::setTextOptions(*m_opener, true, m_cmdLine, &delegate);
    const Changes changes = updateTiles(*writer, inputs, delegate);
    Utils::compareCoordinateSystems(writer->getCoordinateSystems(), merge, Utils::warn);
    configure(*writer);
    if (m_cmdLine.getFlag("createOverview"))
        createOverview(*writer, delegate);
    else if (writer->getOverviewInfo() && !m_cmdLine.isPresent("overview") &&
             changes.added + changes.refreshed != 0)
        Utils::warn(
            std::string("the overview of '") + index + "' does not cover files that were added or " +
            "changed; queries of small fractions read only the overview. -createOverview makes a new one");
    writer->write(index);
    Utils::endProgressLine();
    for (const std::string& warning : writer->getWarnings())
        Utils::warn(warning);
    Utils::warnOfUnknownCoordinateSystems(writer->getUnknownCoordinateSystems(),
                                          "; the index does not keep them", Utils::warn);
    if (writer->getNumPoints() == 0)
        Utils::warn(std::string("'") + index + "': none of the files has points");
    if (!Utils::isQuiet())
        std::printf("%zu files, %lld points (%zu files added, %zu refreshed, %zu removed), %lld bytes, %s\n",
                    writer->getNumTiles(), static_cast<long long>(writer->getNumPoints()), changes.added,
                    changes.refreshed, changes.removed, static_cast<long long>(QMFileUtils::getSize(index)),
                    describeSpeed(writer->getNumPoints()).c_str());
    Utils::setTextOptions(*m_opener, true, m_cmdLine); // the delegate is destroyed on return
}

std::vector<std::string> TileIndexer::collectInputs() const
{
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    Utils::setTextOptions(files->getOpener(), false, m_cmdLine);
    Utils::handleRemoteOption(m_cmdLine, files->getOpener());
    files->setNamesErrors();
    Utils::addNamed(*files, m_cmdLine);
    // The index must not replace an input.
    Utils::refuseNamed(m_cmdLine, m_cmdLine.getString("index"));
    std::vector<std::string> inputs;
    for (std::size_t i = 0; i < files->getNumSources(); ++i) {
        Utils::refuseSameFile(files->getFilename(i), m_cmdLine.getString("index"));
        inputs.emplace_back(files->getFilename(i));
    }
    if (inputs.empty() && !m_cmdLine.getFlag("update"))
        QM_THROW(ErrorCode::General, "there are no files to index");
    return inputs;
}

// Creating an overview must not replace a tile or a list. The present overview of the index is not a tile.
void TileIndexer::refuseAsOverview(std::vector<std::string> files) const
{
    const char* overview = m_cmdLine.getString("overview");
    const std::string path = resolved(overview);
    bool isPresent = false;
    try {
        const auto index = make<PersistentPointSourceManager>(m_cmdLine.getString("index"), m_opener.get());
        isPresent = index->getOverviewInfo() && resolved(index->getOverviewInfo()->path) == path;
    } catch (const Error&) {
        // There is no index, or an unreadable one that will be replaced.
    }
    for (const std::string& name : Utils::getStrings(m_cmdLine, "inputFile"))
        files.push_back(name);
    for (const std::string& file : files)
        if (!isPresent || resolved(file) != path)
            Utils::refuseSameFile(file.c_str(), overview);
}

TileIndexer::Changes TileIndexer::updateTiles(PersistentPointSourceWriter& writer,
                                              const std::vector<std::string>& inputs,
                                              ProgressDelegate& delegate) const
{
    std::vector<std::string> files = writer.getFiles();
    if (const TileInfo* overview = writer.getOverviewInfo())
        files.push_back(overview->path);
    files.insert(files.end(), inputs.begin(), inputs.end());
    if (m_cmdLine.getFlag("createOverview") && m_cmdLine.isPresent("overview"))
        refuseAsOverview(files);
    delegate.setTotal(static_cast<double>(files.size()));

    std::set<std::string> seen;
    if (m_cmdLine.isPresent("overview"))
        seen.insert(resolved(m_cmdLine.getString("overview")));
    Changes changes;
    for (const std::string& file : files) {
        if (delegate.getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        if (seen.insert(resolved(file)).second) {
            using Change = PersistentPointSourceWriter::Change;
            const Change change = writer.update(file.c_str());
            changes.added += change == Change::Added;
            changes.refreshed += change == Change::Refreshed;
            changes.removed += change == Change::Removed;
        }
        delegate.updateCompleted(1, "indexing files");
    }
    return changes;
}

void TileIndexer::configure(PersistentPointSourceWriter& writer) const
{
    if (m_cmdLine.isPresent("srs") && !Utils::getMergeOptions(m_cmdLine).requiresSameCoordinateSystem)
        writer.setSRS(m_cmdLine.getString("srs"));
    if (m_cmdLine.getFlag("removeOverview"))
        writer.removeOverview(false);
    if (m_cmdLine.isPresent("overview") && !m_cmdLine.getFlag("createOverview"))
        setOverview(writer);
}

void TileIndexer::setOverview(PersistentPointSourceWriter& writer) const
{
    const char* file = m_cmdLine.getString("overview");
    double fraction = 0;
    if (m_cmdLine.isPresent("overviewFraction")) {
        fraction = m_cmdLine.getFloat("overviewFraction");
    } else {
        const Scoped<PointSource> overview = openTile(*m_opener, file);
        fraction = static_cast<double>(overview->getNumPoints()) / static_cast<double>(writer.getNumPoints());
    }
    writer.setOverview(file, fraction);
}

void TileIndexer::createOverview(PersistentPointSourceWriter& writer, ProgressDelegate& delegate) const
{
    constexpr double defaultFraction = 1.0 / 16;
    const char* file = m_cmdLine.isPresent("overview") ? m_cmdLine.getString("overview") : "";
    if (const PointSourceType type = Utils::getPointSourceType(file);
        type != POINT_SOURCE_VX7 && type != POINT_SOURCE_LAS && type != POINT_SOURCE_LAZ)
        QM_THROW(ErrorCode::General, "an overview is created as a VX7, LAS or LAZ file: '%s'", file);
    const double fraction =
        m_cmdLine.isPresent("overviewFraction") ? m_cmdLine.getFloat("overviewFraction") : defaultFraction;

    writer.removeOverview(false); // its points must not be read
    const Scoped<PointSource> tiles = writer.createPointSource();
    const Scoped<PointWriter> points =
        OutputChoice(file, nullptr).createWriter(*tiles, file, tiles->getPointInfo());
    points->write(Bounds::Huge(), fraction, tiles->getPointInfo(), &delegate);
    if (const auto* las = dynamic_cast<const LASPointWriter*>(points.get()))
        Utils::warnOfLASOutput(*las, tiles->getPointInfo(), file, "", Utils::warn);
    writer.setOverview(file, fraction);
}

} // namespace Quillmoran
