// Files of the virtual file systems of GDAL: buckets, archives, and servers that need its options.
#include "servers/ServerModules.h"
#include "srs/QuietLibraries.h"

#include <cpl_conv.h>
#include <cpl_vsi.h>
#include <cpl_vsi_error.h>

#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>

namespace Quillmoran {

namespace {

struct VSICloser
{
    void operator()(VSILFILE* file) const { VSIFCloseL(file); }
};

// Settings that hold while an object exists, unless the user has others: GDAL waits for ever by default, does
// not retry, and lists the directory of a file.
class Settings
{
public:
    Settings()
    {
        for (std::size_t i = 0; i < std::size(all); ++i) {
            m_isSet[i] = !CPLGetConfigOption(all[i].name, nullptr);
            if (m_isSet[i])
                CPLSetThreadLocalConfigOption(all[i].name, all[i].value);
        }
    }
    ~Settings()
    {
        for (std::size_t i = 0; i < std::size(all); ++i)
            if (m_isSet[i])
                CPLSetThreadLocalConfigOption(all[i].name, nullptr);
    }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

private:
    struct Setting
    {
        const char* name;
        const char* value;
    };
    static constexpr Setting all[] = {{"GDAL_DISABLE_READDIR_ON_OPEN", "EMPTY_DIR"},
                                      {"GDAL_HTTP_MAX_RETRY", "3"},
                                      {"GDAL_HTTP_RETRY_DELAY", "0.5"},
                                      {"GDAL_HTTP_CONNECTTIMEOUT", "10"},
                                      {"GDAL_HTTP_LOW_SPEED_LIMIT", "1"},
                                      {"GDAL_HTTP_LOW_SPEED_TIME", "30"}};

    std::array<bool, std::size(all)> m_isSet{};
};

class VSISource final : public RangeSource
{
public:
    VSISource(const char* path, const Environment& environment) : m_path(path), m_environment(environment) {}

    Result open(std::int64_t& size, std::vector<unsigned char>& head) override
    {
        const QuietLibraries quiet;
        const Settings settings;
        CPLErrorReset();
        VSIErrorReset();
        m_file.reset(VSIFOpenExL(m_path.c_str(), "rb", true));
        if (!m_file || VSIFSeekL(m_file.get(), 0, SEEK_END) != 0)
            return fail("there is no such file, or it cannot be opened");
        size = static_cast<std::int64_t>(VSIFTellL(m_file.get()));
        if (size < 0)
            return {Result::Failed, "its size is not known"};
        if (size < static_cast<std::int64_t>(head.size()))
            head.resize(static_cast<std::size_t>(size));
        if (head.empty())
            return {};
        const Read first{0, head};
        return read({&first, 1});
    }

    // GDAL answers one thread at a time, but asks the server for all ranges at the same time.
    Result read(std::span<const Read> reads) override
    {
        const std::lock_guard lock(m_mutex);
        if (m_environment.isInterrupted())
            return {Result::Cancelled, {}};
        const QuietLibraries quiet;
        const Settings settings;
        std::vector<void*> buffers;
        std::vector<vsi_l_offset> offsets;
        std::vector<std::size_t> sizes;
        std::int64_t bytes = 0;
        for (const Read& range : reads) {
            buffers.push_back(range.into.data());
            offsets.push_back(static_cast<vsi_l_offset>(range.offset));
            sizes.push_back(range.into.size());
            bytes += static_cast<std::int64_t>(range.into.size());
        }
        m_environment.count(static_cast<std::int64_t>(reads.size()), bytes);
        CPLErrorReset();
        if (VSIFReadMultiRangeL(static_cast<int>(reads.size()), buffers.data(), offsets.data(), sizes.data(),
                                m_file.get()) != 0)
            return fail("a read has failed");
        return {};
    }

    bool takesManyRanges() const noexcept override { return false; }

private:
    static Result fail(const char* otherwise)
    {
        std::string message = CPLGetLastErrorMsg();
        if (message.empty())
            message = VSIGetLastErrorMsg();
        return {Result::Failed, message.empty() ? otherwise : message};
    }

    const std::string m_path;
    const Environment m_environment;
    std::mutex m_mutex;
    std::unique_ptr<VSILFILE, VSICloser> m_file;
};

} // namespace

} // namespace Quillmoran

Quillmoran::RangeSource* qmMakeVSISource(const char* path,
                                         const Quillmoran::RangeSource::Environment& environment)
{
    return new Quillmoran::VSISource(path, environment);
}
