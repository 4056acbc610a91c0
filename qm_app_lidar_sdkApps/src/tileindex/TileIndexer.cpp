#include "tileindex/TileIndexer.h"

#include "files/QMFileUtils.h"
#include "tileindex/TileReport.h"
#include "utils/ConsoleProgress.h"
#include "utils/Program.h"
#include "utils/Summary.h"
#include "utils/ThreadPool.h"
#include "utils/Utils.h"
#include <vxunpack/Base.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/PersistentPointSourceWriter.h>
#include <vxunpack/ProgressDelegate.h>

#include <algorithm>
#include <cstdio>
#include <set>

namespace Quillmoran {

namespace {

constexpr char description[] = "Builds, updates and lists spatial indexes of LiDAR files";

} // namespace

TileIndexer::TileIndexer() : m_cmdLine("vxindex", description, description, true)
{
    Utils::setVersion(m_cmdLine);
    Utils::addCommonOptions(m_cmdLine);
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
    m_cmdLine.addString("overview", nullptr, "file that holds an even share of the points of all files",
                        false);
    m_cmdLine.addFloat(
        "overviewFraction", nullptr,
        "that share, above 0 and at most 1.  By default it is computed from the numbers of points", false);
    m_cmdLine.addFlag(
        "createOverview", nullptr,
        "write the file of -overview, LAS or LAZ, from the indexed files.  Its share is 1/16 by default");
    m_cmdLine.addFlag("removeOverview", nullptr, "take the overview out of the index; its file stays");
    Utils::addTXTPointReaderOptions(m_cmdLine);
    Utils::addWaveformOption(m_cmdLine);
}

void TileIndexer::parse(int argc, const char* const* argv)
{
    m_cmdLine.setStrictNumbers();
    m_cmdLine.parse(argc, argv);
    if (m_cmdLine.isPresent("overviewFraction") &&
        !isOverviewFraction(m_cmdLine.getFloat("overviewFraction")))
        m_cmdLine.usageError("the value of -overviewFraction must be above 0 and at most 1");
}

void TileIndexer::run()
{
    ThreadPool pool(m_cmdLine.isPresent("numThreads") ? m_cmdLine.getUint("numThreads") : 0);
    Utils::setTextOptions(*m_opener, true, m_cmdLine);
    if (Utils::dropsWaveforms(m_cmdLine))
        m_opener->dropWaveforms();
    // Every other name would not be opened as an index, and might be that of a tile.
    if (Utils::getPointSourceType(m_cmdLine.getString("index")) != POINT_SOURCE_INDEX)
        QM_THROW(ErrorCode::General, "the name of an index must end in '.index': '%s'",
                 m_cmdLine.getString("index"));
    if (m_cmdLine.getFlag("list") || m_cmdLine.getFlag("check"))
        pool.execute([this] { report(); });
    else
        pool.execute([this] { build(); });
    if (m_cmdLine.getFlag("verbose"))
        printSummary();
}

Scoped<PointSource> TileIndexer::openIndex() const
{
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    Utils::setTextOptions(*files, false, m_cmdLine);
    files->setOpenFullWaveformFiles(Utils::dropsWaveforms(m_cmdLine)); // warned of before
    files->addFile(m_cmdLine.getString("index"));
    return Scoped<PointSource>(files->createPointSource(0));
}

void TileIndexer::printSummary() const
{
    Utils::printHeader(stdout, *openIndex(), nullptr);
}

void TileIndexer::report() const
{
    const Scoped<PersistentPointSourceManager> index(PersistentPointSourceManager::create());
    index->init(m_cmdLine.getString("index"), m_opener.get());
    TileReport(index->getTileSet(), m_cmdLine.getFlag("check") ? m_opener.get() : nullptr).print(stdout);
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

    const std::vector<QMFileSpec> inputs = collectInputs(); // an interrupt ends the program at once
    Utils::ConsoleProgress delegate;
    Utils::setTextOptions(*m_opener, true, m_cmdLine, &delegate);
    const Changes changes = updateTiles(*writer, inputs, delegate);
    Utils::compareCoordinateSystems(writer->getCoordinateSystems(), merge);
    configure(*writer);
    if (m_cmdLine.getFlag("createOverview"))
        createOverview(*writer, delegate);
    else if (writer->getOverview() && !m_cmdLine.isPresent("overview") &&
             changes.added + changes.refreshed != 0)
        Utils::warn(std::string("the overview of '") + index + "' does not cover files that were added or " +
                    "changed; queries of small shares read it alone. -createOverview makes a new one");
    writer->write(index);
    delegate.finish();
    std::putchar('\n');
    for (const std::string& warning : writer->getWarnings())
        Utils::warn(warning);
    Utils::warnOfUnknownCoordinateSystems(writer->getUnknownCoordinateSystems(),
                                          "; the index does not keep them");
    if (writer->getNumPoints() == 0)
        Utils::warn(std::string("'") + index + "': none of the files has points");
    std::printf("%zu files, %lld points (%zu files added, %zu refreshed, %zu removed)\n",
                writer->getNumTiles(), static_cast<long long>(writer->getNumPoints()), changes.added,
                changes.refreshed, changes.removed);
    Utils::setTextOptions(*m_opener, true, m_cmdLine); // without the delegate, which ends here
}

std::vector<QMFileSpec> TileIndexer::collectInputs() const
{
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    Utils::setTextOptions(*files, false, m_cmdLine);
    files->setNamesErrors();
    std::size_t count = 0;
    const char* const* names = m_cmdLine.getStringArray("inputFile", count);
    for (std::size_t i = 0; i < count; ++i)
        Utils::addInput(*files, names[i], m_cmdLine);
    std::vector<QMFileSpec> inputs;
    for (std::size_t i = 0; i < files->getNumSources(); ++i)
        inputs.emplace_back(files->getFilename(i));
    if (inputs.empty() && !m_cmdLine.getFlag("update"))
        QM_THROW(ErrorCode::General, "there are no files to index");
    return inputs;
}

// What is written must not take the place of what is described. An index among the inputs is no tile.
void TileIndexer::refuseInputs(const std::vector<QMFileSpec>& inputs) const
{
    std::size_t count = 0;
    const char* const* names = m_cmdLine.getStringArray("inputFile", count);
    for (std::size_t i = 0; i < count; ++i) // a list is no tile, but read
        Utils::refuseSameFile(names[i], m_cmdLine.getString("index"));
    for (const QMFileSpec& input : inputs)
        Utils::refuseSameFile(input.c_str(), m_cmdLine.getString("index"));
}

// Creating an overview must not replace a tile. The present overview of the index is not a
// tile.
void TileIndexer::refuseAsOverview(const std::vector<QMFileSpec>& files) const
{
    const char* overview = m_cmdLine.getString("overview");
    const QMFileSpec path = QMFileUtils::resolve(overview);
    const bool isPresent = findPresentOverview() == path;
    for (const QMFileSpec& file : files)
        if (!isPresent || !(QMFileUtils::resolve(file) == path))
            Utils::refuseSameFile(file.c_str(), overview);
    std::size_t count = 0;
    const char* const* names = m_cmdLine.getStringArray("inputFile", count);
    for (std::size_t i = 0; i < count; ++i) // lists, too
        if (!isPresent || !(QMFileUtils::resolve(names[i]) == path))
            Utils::refuseSameFile(names[i], overview);
}

// The resolved path of the overview of the index on disk; empty if there is no such index or overview.
QMFileSpec TileIndexer::findPresentOverview() const
{
    try {
        const Scoped<PersistentPointSourceManager> index(PersistentPointSourceManager::create());
        index->init(m_cmdLine.getString("index"), m_opener.get());
        if (const TileInfo* overview = index->getOverviewInfo())
            return QMFileUtils::resolve(overview->path);
    } catch (const Error&) {
        // An index that cannot be read is replaced.
    }
    return {};
}

TileIndexer::Changes TileIndexer::updateTiles(PersistentPointSourceWriter& writer,
                                              const std::vector<QMFileSpec>& inputs,
                                              ProgressDelegate& delegate) const
{
    std::vector<QMFileSpec> files = writer.getFiles();
    if (writer.getOverview())
        files.push_back(writer.getOverview()->tile.path);
    refuseInputs(inputs);
    files.insert(files.end(), inputs.begin(), inputs.end());
    if (m_cmdLine.getFlag("createOverview") && m_cmdLine.isPresent("overview"))
        refuseAsOverview(files);
    delegate.setTotal(static_cast<double>(files.size()));

    std::set<QMFileSpec> seen;
    if (m_cmdLine.isPresent("overview"))
        seen.insert(QMFileUtils::resolve(m_cmdLine.getString("overview")));
    Changes changes;
    for (const QMFileSpec& file : files) {
        if (delegate.getCancelled())
            QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
        if (seen.insert(QMFileUtils::resolve(file)).second) {
            using Change = PersistentPointSourceWriter::Change;
            const Change change = writer.update(file);
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
    const PointSourceType type = Utils::getPointSourceType(file);
    if (type != POINT_SOURCE_LAS && type != POINT_SOURCE_LAZ)
        QM_THROW(ErrorCode::General, "an overview is created as a LAS or LAZ file: '%s'", file);
    const double fraction =
        m_cmdLine.isPresent("overviewFraction") ? m_cmdLine.getFloat("overviewFraction") : defaultFraction;

    writer.removeOverview(false); // its points must not be read
    const Scoped<PointSource> tiles = writer.createPointSource();
    const Scoped<LASPointWriter> points(LASPointWriter::create());
    points->init(tiles.get(), file, -1);
    points->setWriteLAZ(type == POINT_SOURCE_LAZ);
    points->write(Bounds::Huge(), fraction, tiles->getPointInfo(), &delegate);
    Utils::warnOfLASOutput(*points, file);
    writer.setOverview(file, fraction);
}

} // namespace Quillmoran
