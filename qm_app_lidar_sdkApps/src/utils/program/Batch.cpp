#include "utils/program/Batch.h"

#include "files/QMFileUtils.h"
#include "files/RemoteName.h"
#include "text/Printable.h"
#include "utils/program/Program.h"
#include "utils/sets/Inputs.h"
#include "utils/sets/NamedSource.h"
#include "utils/sets/ThreadLimit.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

namespace Quillmoran::Utils {

namespace {

namespace fs = std::filesystem;

std::vector<std::string> expand(const std::string& argument, int depth, bool allowsRemote)
{
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->getOpener().setTextOptions({}); // accepts the names of text files
    files->getOpener().setAllowsRemote(allowsRemote);
    addInput(*files, argument.c_str(), depth);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < files->getNumSources(); ++i)
        names.emplace_back(files->getFilename(i));
    return names;
}

bool isBelow(const fs::path& path, const fs::path& directory)
{
    return std::mismatch(directory.begin(), directory.end(), path.begin(), path.end()).first ==
           directory.end();
}

// Both paths without links, "." and "..".
fs::path canonical(const fs::path& path)
{
    std::error_code error;
    const fs::path result = fs::weakly_canonical(path, error);
    return error ? path : result;
}

bool isUpToDate(const Conversion& conversion)
{
    std::error_code noInput, noOutput;
    const auto input = fs::last_write_time(conversion.input, noInput);
    const auto output = fs::last_write_time(conversion.output, noOutput);
    return !noInput && !noOutput && output >= input;
}

// The conversions of one run, and what their threads share.
class Batch
{
public:
    using Convert = std::function<Converted(const Conversion&, ProgressDelegate&)>;

    Batch(const std::vector<Conversion>& conversions, unsigned numThreads, const Convert& convert)
        : m_conversions(conversions), m_convert(convert), m_numThreads(numThreads)
    {
        for (const Conversion& conversion : conversions)
            m_totalSize += static_cast<double>(conversion.size);
    }

    BatchResult run(std::size_t numUpToDate)
    {
        m_result.numUpToDate = numUpToDate;
        std::vector<std::thread> threads;
        const std::size_t numAtOnce = std::min<std::size_t>(m_numThreads, m_conversions.size());
        for (std::size_t i = 1; i < numAtOnce; ++i)
            threads.emplace_back([this] { work(); });
        work();
        for (std::thread& thread : threads)
            thread.join();
        if (m_cancellation)
            std::rethrow_exception(m_cancellation);
        return m_result;
    }

private:
    // The progress of one file counts with its size.
    class FileProgress final : public PercentProgressDelegate
    {
    public:
        FileProgress(Batch& batch, const Conversion& conversion) : m_batch(batch), m_conversion(conversion) {}

        void reportProgress(double fraction, const char*) override
        {
            fraction = fraction > 0 ? std::min(fraction, 1.0) : 0; // not a number without points
            const double done = fraction * static_cast<double>(m_conversion.size);
            m_batch.advance(done - m_done);
            m_done = done;
        }
        void displayWarning(const char* text) override { warn(text); }

    private:
        Batch& m_batch;
        const Conversion& m_conversion;
        double m_done = 0;
    };

    void work()
    {
        for (std::size_t i = m_next++; i < m_conversions.size() && !m_isCancelled; i = m_next++) {
            // The last files share the threads.
            const std::size_t numLeft = m_conversions.size() - i;
            const auto numAtOnce = static_cast<unsigned>(std::min<std::size_t>(m_numThreads, numLeft));
            ThreadLimit::executeOn(m_numThreads / numAtOnce, [&] { convert(m_conversions[i]); });
        }
    }

    void convert(const Conversion& conversion)
    {
        try {
            FileProgress progress(*this, conversion);
            fs::create_directories(fs::path(conversion.output).parent_path());
            const Converted converted = m_convert(conversion, progress);
            progress.reportProgress(1, "");
            const std::lock_guard<std::mutex> lock(m_mutex);
            ++m_result.numConverted;
            m_result.sum.numPoints += converted.numPoints;
            m_result.sum.size += converted.size;
            if (!isQuiet()) {
                endProgressLine();
                std::printf("%s: %lld points, %lld bytes\n", printable(conversion.output).c_str(),
                            static_cast<long long>(converted.numPoints),
                            static_cast<long long>(converted.size));
                std::fflush(stdout);
            }
        } catch (Error& error) {
            if (error.code() == ErrorCode::Cancelled) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_cancellation = std::current_exception();
                m_isCancelled = true;
                return;
            }
            nameFile(error, conversion.input);
            fail(conversion, error.what());
        } catch (const std::exception& error) {
            fail(conversion, (error.what() + (" path = " + conversion.input)).c_str());
        }
    }

    void fail(const Conversion& conversion, const char* text)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        printError(text);
        m_result.failed.push_back(conversion.input);
    }

    void advance(double size)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_doneSize += size;
        if (!StatusLine::isDue())
            return;
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count();
        const double fraction = m_doneSize / m_totalSize;
        const std::size_t numDone = m_result.numConverted + m_result.failed.size();
        StatusLine::draw(StatusLine::formatPercentage(fraction) + std::to_string(numDone) + " of " +
                         std::to_string(m_conversions.size()) + " files" +
                         StatusLine::formatTimeLeft(fraction, seconds));
    }

    const std::vector<Conversion>& m_conversions;
    const Convert& m_convert;
    const unsigned m_numThreads;
    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
    double m_totalSize = 0;
    std::atomic<std::size_t> m_next{0};
    std::atomic<bool> m_isCancelled{false};

    std::mutex m_mutex; // of everything below
    double m_doneSize = 0;
    BatchResult m_result;
    std::exception_ptr m_cancellation;
};

} // namespace

std::vector<Conversion> planConversions(const std::vector<std::string>& arguments, int depth,
                                        const std::string& outputDirectory, const char* ending,
                                        const std::function<bool(const char* name)>& accepts,
                                        bool allowsRemote)
{
    std::vector<Conversion> conversions;
    std::map<std::string, std::string> inputOf; // by the output
    const fs::path canonicalOutput = canonical(outputDirectory);
    for (const std::string& argument : arguments) {
        const bool isDirectory = QMFileUtils::isDirectory(argument.c_str());
        const bool isOutside = isDirectory && !isBelow(canonical(argument), canonicalOutput);
        for (const std::string& input : expand(argument, depth, allowsRemote)) {
            if (isDirectory && !accepts(input.c_str()))
                continue;
            fs::path relative = isDirectory ? fs::path(input).lexically_relative(argument)
                                            : fs::path(RemoteName::withoutQuery(input)).filename();
            const std::string output = fs::path(outputDirectory) / relative.replace_extension(ending);
            if (QMFileUtils::isSameFile(input.c_str(), output.c_str()) ||
                (isOutside && isBelow(canonical(input), canonicalOutput)))
                continue;
            const auto [other, isNew] = inputOf.emplace(canonical(output), input);
            if (!isNew && other->second == input)
                continue;
            if (!isNew)
                QM_THROW(ErrorCode::General, "'%s' and '%s' have the same output '%s'", other->second.c_str(),
                         input.c_str(), output.c_str());
            std::error_code error;
            const std::uintmax_t size = fs::file_size(input, error);
            conversions.push_back({input, output, error ? 0 : static_cast<std::int64_t>(size)});
        }
    }
    if (conversions.empty())
        QM_THROW(ErrorCode::General, "there are no files to convert");
    return conversions;
}

BatchResult convertAll(const std::vector<Conversion>& conversions, unsigned numThreads, bool force,
                       const std::function<Converted(const Conversion&, ProgressDelegate&)>& convert)
{
    std::vector<Conversion> wanted = conversions;
    const ProgressLine progress; // handles signals between the files, too
    if (!force)
        wanted.erase(std::remove_if(wanted.begin(), wanted.end(), isUpToDate), wanted.end());
    return Batch(wanted, numThreads, convert).run(conversions.size() - wanted.size());
}

bool reportBatch(const BatchResult& result, const std::string& speed)
{
    const std::size_t numFailed = result.failed.size();
    endProgressLine();
    if (!isQuiet()) {
        std::printf("%zu files converted, %zu up to date, %zu failed: %lld points written, %lld bytes, %s\n",
                    result.numConverted, result.numUpToDate, numFailed,
                    static_cast<long long>(result.sum.numPoints), static_cast<long long>(result.sum.size),
                    speed.c_str());
        std::fflush(stdout);
    }
    if (numFailed == 0)
        return true;
    std::string names;
    for (const std::string& name : result.failed)
        names += "\n  " + printable(name);
    std::fprintf(stderr, "Error: %zu of %zu files were not converted:%s\n", numFailed,
                 numFailed + result.numConverted + result.numUpToDate, names.c_str());
    return false;
}

} // namespace Quillmoran::Utils
