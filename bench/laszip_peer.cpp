// LASzip as a program, for scripts/compare.py to run side by side with ours. It uses LASzip alone.
//
//   laszip_peer version
//   laszip_peer decode FILE                           prints the number of points
//   laszip_peer window LAZ MINX MAXX MINY MAXY        likewise, of those inside, found by the spatial index
//   laszip_peer encode FILE LAZ [indexed]             "indexed" also writes a spatial index, FILE.lax
//   laszip_peer same FILE FILE                        fails unless both have the same points in the same order
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <laszip/laszip_api.h>
#include <laszip/laszip_api_version.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A LASzip reader or writer. A status other than 0 is thrown with LASzip's message.
class Handle
{
public:
    Handle() { check(laszip_create(&m_handle)); }
    explicit Handle(const std::string& path) : Handle() { open(path); }
    ~Handle() { laszip_destroy(m_handle); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    void open(const std::string& path)
    {
        laszip_BOOL isCompressed = 0;
        check(laszip_open_reader(m_handle, path.c_str(), &isCompressed));
        check(laszip_get_header_pointer(m_handle, &header));
        check(laszip_get_point_pointer(m_handle, &point));
        // LAS 1.4 has two counts, and sets the old one to 0 for new record formats.
        numPoints = header->number_of_point_records != 0 ? header->number_of_point_records
                                                         : header->extended_number_of_point_records;
    }

    void check(laszip_I32 status) const
    {
        laszip_CHAR* reason = nullptr;
        if (status != 0 && m_handle)
            laszip_get_error(m_handle, &reason);
        if (status != 0)
            throw std::runtime_error(std::string("LASzip: ") + (reason ? reason : "unknown error"));
    }
    void readPoint() { check(laszip_read_point(m_handle)); }
    laszip_POINTER get() const { return m_handle; }

    laszip_header_struct* header = nullptr;
    laszip_point_struct* point = nullptr;
    std::uint64_t numPoints = 0;

private:
    laszip_POINTER m_handle = nullptr;
};

std::uint64_t decode(const std::string& path)
{
    Handle reader(path);
    for (std::uint64_t i = 0; i < reader.numPoints; ++i)
        reader.readPoint();
    return reader.numPoints;
}

std::uint64_t readWindow(const std::string& path, double minX, double maxX, double minY, double maxY)
{
    Handle reader;
    reader.check(laszip_exploit_spatial_index(reader.get(), 1));
    reader.open(path);
    laszip_BOOL hasIndex = 0;
    laszip_BOOL isAppended = 0;
    reader.check(laszip_has_spatial_index(reader.get(), &hasIndex, &isAppended));
    if (!hasIndex)
        throw std::runtime_error(path + " has no spatial index");
    laszip_BOOL isDone = 0;
    reader.check(laszip_inside_rectangle(reader.get(), minX, minY, maxX, maxY, &isDone));
    std::uint64_t count = 0;
    while (!isDone) {
        reader.check(laszip_read_inside_point(reader.get(), &isDone));
        count += isDone ? 0 : 1;
    }
    return count;
}

// Keeps header and points, without VLRs, wave packets and extra bytes.
void encode(const std::string& input, const std::string& output, bool isIndexed)
{
    // By record format. Formats with wave packets become those with the same fields and no packets.
    constexpr std::array<laszip_U8, 11> formats = {0, 1, 2, 3, 1, 3, 6, 7, 8, 6, 8};
    constexpr std::array<laszip_U16, 9> recordLengths = {20, 28, 26, 34, 0, 0, 30, 36, 38};
    constexpr std::array<laszip_U16, 5> headerSizes = {227, 227, 227, 235, 375}; // by minor version

    Handle reader(input);
    Handle writer;
    laszip_header_struct header = *reader.header;
    header.header_size = headerSizes.at(header.version_minor);
    header.offset_to_point_data = header.header_size;
    header.point_data_format = formats.at(header.point_data_format);
    header.point_data_record_length = recordLengths.at(header.point_data_format);
    header.number_of_variable_length_records = 0;
    header.vlrs = nullptr;
    header.start_of_waveform_data_packet_record = 0;
    header.start_of_first_extended_variable_length_record = 0;
    header.number_of_extended_variable_length_records = 0;
    header.user_data_in_header_size = 0;
    header.user_data_in_header = nullptr;
    header.user_data_after_header_size = 0;
    header.user_data_after_header = nullptr;
    writer.check(laszip_get_header_pointer(writer.get(), &writer.header));
    *writer.header = header;
    writer.check(laszip_request_native_extension(writer.get(), header.point_data_format >= 6));
    if (isIndexed)
        writer.check(laszip_create_spatial_index(writer.get(), 1, 0));
    writer.check(laszip_open_writer(writer.get(), output.c_str(), 1));
    writer.check(laszip_get_point_pointer(writer.get(), &writer.point));
    for (std::uint64_t i = 0; i < reader.numPoints; ++i) {
        reader.readPoint();
        *writer.point = *reader.point;
        writer.point->num_extra_bytes = 0;
        writer.point->extra_bytes = nullptr;
        writer.check(isIndexed ? laszip_write_indexed_point(writer.get()) : laszip_write_point(writer.get()));
    }
    writer.check(laszip_close_writer(writer.get()));
}

void requireSame(const std::string& expected, const std::string& actual)
{
    Handle left(expected);
    Handle right(actual);
    // In between are bytes that LASzip uses for itself.
    constexpr std::size_t begin = offsetof(laszip_point_struct, dummy);
    constexpr std::size_t time = offsetof(laszip_point_struct, gps_time);
    constexpr std::size_t end = offsetof(laszip_point_struct, wave_packet);
    bool isSame = left.numPoints == right.numPoints;
    for (std::uint64_t i = 0; i < left.numPoints && isSame; ++i) {
        left.readPoint();
        right.readPoint();
        isSame = std::memcmp(left.point, right.point, begin) == 0 &&
                 std::memcmp(&left.point->gps_time, &right.point->gps_time, end - time) == 0;
    }
    if (!isSame)
        throw std::runtime_error(actual + " has other points than " + expected);
}

void run(const std::vector<std::string>& words)
{
    const auto number = [&](std::size_t i) { return std::atof(words[i].c_str()); };
    const std::string command = words.empty() ? "" : words[0];
    if (command == "version" && words.size() == 1)
        std::printf("g++ " __VERSION__ "; LASzip %d.%d.%d\n", LASZIP_API_VERSION_MAJOR,
                    LASZIP_API_VERSION_MINOR, LASZIP_API_VERSION_PATCH);
    else if (command == "decode" && words.size() == 2)
        std::printf("%ju\n", std::uintmax_t{decode(words[1])});
    else if (command == "window" && words.size() == 6)
        std::printf("%ju\n",
                    std::uintmax_t{readWindow(words[1], number(2), number(3), number(4), number(5))});
    else if (command == "encode" && (words.size() == 3 || words.size() == 4))
        encode(words[1], words[2], words.size() == 4);
    else if (command == "same" && words.size() == 3)
        requireSame(words[1], words[2]);
    else
        throw std::runtime_error("usage: laszip_peer version|decode|window|encode|same ARGUMENT ...");
}

} // namespace

int main(int argc, char** argv)
{
    try {
        run({argv + 1, argv + argc});
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
}
