#include <vxunpack/Metadata.h>

#include "platform/Stream.h"
#include "text/Printable.h"
#include <vxunpack/Base.h>

#include <algorithm>
#include <cstring>

namespace Quillmoran {

namespace {

constexpr ErrorCode readError = ErrorCode::MetadataRead;
constexpr ErrorCode writeError = ErrorCode::MetadataWrite;
constexpr std::uint32_t formatVersion = 0;

// Swaps the doubles of an array between the byte orders of file and machine; its own inverse.
void swapDoubles(std::vector<unsigned char>& bytes, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        unsigned char* at = bytes.data() + i * sizeof(double);
        const auto value = loadBigEndian<double>(at);
        std::memcpy(at, &value, sizeof value);
    }
}

// A block and a spare NUL. The length is compared with the size of the file before memory is allocated.
std::vector<unsigned char> readBlock(StreamReader& reader, const char* name)
{
    std::uint32_t length = 0;
    if (!reader.get_be(length))
        QM_THROW(readError, "bad read -- %s length", name);
    std::vector<unsigned char> block;
    const std::uint64_t size = std::uint64_t{length} + 1;
    if (length > reader.remaining() || size > block.max_size())
        QM_THROW(readError, "bad read -- %s data", name);
    block.resize(static_cast<std::size_t>(size));
    if (reader.read(block.data(), length) != length)
        QM_THROW(readError, "bad read -- %s data", name);
    return block;
}

void writeBlock(StreamWriter& writer, const void* bytes, std::size_t length, const char* name)
{
    if (length > UINT32_MAX || !writer.put_be(static_cast<std::uint32_t>(length)))
        QM_THROW(writeError, "bad write -- %s length", name);
    if (writer.write(bytes, length) != length)
        QM_THROW(writeError, "bad write -- %s data", name);
}

void writeText(StreamWriter& writer, const std::string& text, const char* name)
{
    writeBlock(writer, text.c_str(), text.empty() ? 0 : text.size() + 1, name);
}

std::string toText(const std::vector<unsigned char>& block)
{
    return reinterpret_cast<const char*>(block.data());
}

} // namespace

std::size_t Metadata::Record::length() const noexcept
{
    return type == METADATA_FLOAT64_ARRAY ? bytes() / sizeof(double) : bytes();
}

void Metadata::add(const char* key, const char* description, MetadataDataType type, const void* value,
                   std::size_t length)
{
    if (!key || !*key)
        QM_THROW(ErrorCode::InvalidArgument, "metadata key not given");
    if (!value)
        QM_THROW(ErrorCode::InvalidArgument, "metadata value not given");
    std::size_t bytes = length;
    if (type == METADATA_STRING)
        bytes = std::strlen(static_cast<const char*>(value)) + 1;
    else if (type == METADATA_FLOAT64_ARRAY)
        bytes = length * sizeof(double);
    const auto* first = static_cast<const unsigned char*>(value);
    Record added{key, description ? description : "", type, {first, first + bytes}};
    added.value.push_back(0);
    m_records.push_back(std::move(added));
}

void Metadata::add(const Metadata& other)
{
    const std::vector<Record> copies = other.m_records; // `other` may be this object
    m_records.insert(m_records.end(), copies.begin(), copies.end());
}

const Metadata::Record& Metadata::record(std::size_t index) const
{
    if (index >= m_records.size())
        QM_THROW(ErrorCode::InvalidArgument, "bad index");
    return m_records[index];
}

void Metadata::get(std::size_t index, const char*& key, const char*& description, MetadataDataType& type,
                   const void*& value, std::size_t& length) const
{
    key = getKey(index);
    description = getDescription(index);
    type = getDataType(index);
    value = getValue(index);
    length = getValueLength(index);
}

const char* Metadata::getDescription(std::size_t index) const
{
    const Record& found = record(index);
    return found.description.empty() ? nullptr : found.description.c_str();
}

const void* Metadata::getValue(std::size_t index) const
{
    const Record& found = record(index);
    return found.bytes() == 0 ? nullptr : found.value.data();
}

bool Metadata::get(const char* key, const char*& description, MetadataDataType& type, const void*& value,
                   std::size_t& length) const
{
    const int index = getKeyIndex(key);
    if (index < 0)
        return false;
    get(static_cast<std::size_t>(index), key, description, type, value, length);
    return true;
}

int Metadata::getKeyIndex(const char* key) const noexcept
{
    const auto found = std::find_if(m_records.begin(), m_records.end(),
                                    [key](const Record& candidate) { return candidate.key == key; });
    return found == m_records.end() ? -1 : static_cast<int>(found - m_records.begin());
}

void Metadata::remove(std::size_t index)
{
    record(index);
    m_records.erase(m_records.begin() + static_cast<std::ptrdiff_t>(index));
}

void Metadata::remove(const char* key)
{
    const int index = getKeyIndex(key);
    if (index >= 0)
        m_records.erase(m_records.begin() + index);
}

void Metadata::removeAll(const char* key)
{
    std::erase_if(m_records, [key](const Record& record) { return record.key == key; });
}

void Metadata::sort()
{
    std::sort(m_records.begin(), m_records.end(),
              [](const Record& a, const Record& b) { return std::strcmp(a.key.c_str(), b.key.c_str()) < 0; });
}

void Metadata::write(StreamWriter& writer) const
{
    if (!writer.put_be(formatVersion))
        QM_THROW(writeError, "bad write -- version");
    if (!writer.put_be(static_cast<std::uint32_t>(m_records.size())))
        QM_THROW(writeError, "bad write -- numRecords");
    for (const Record& each : m_records) {
        writeText(writer, each.key, "key");
        writeText(writer, each.description, "description");
        if (!writer.put_be(static_cast<std::uint16_t>(each.type)))
            QM_THROW(writeError, "bad write -- datatype");
        std::vector<unsigned char> value = each.value;
        if (each.type == METADATA_FLOAT64_ARRAY)
            swapDoubles(value, each.length());
        writeBlock(writer, value.data(), each.bytes(), "value");
    }
}

void Metadata::read(StreamReader& reader)
{
    std::uint32_t version = 0;
    if (!reader.get_be(version))
        QM_THROW(readError, "bad read -- version");
    if (version != formatVersion)
        QM_THROW(readError, "unsupported version");
    std::uint32_t count = 0;
    if (!reader.get_be(count))
        QM_THROW(readError, "bad read -- numRecords");
    for (std::uint32_t i = 0; i < count; ++i) {
        Record added{};
        added.key = toText(readBlock(reader, "key"));
        added.description = toText(readBlock(reader, "description"));
        std::uint16_t type = 0;
        if (!reader.get_be(type))
            QM_THROW(readError, "bad read -- datatype");
        added.type = static_cast<MetadataDataType>(type);
        added.value = readBlock(reader, "value");
        if (added.type == METADATA_FLOAT64_ARRAY) {
            added.value.resize(added.length() * sizeof(double) + 1);
            swapDoubles(added.value, added.length());
        }
        if (added.key.empty())
            QM_THROW(ErrorCode::InvalidArgument, "metadata key not given");
        m_records.push_back(std::move(added));
    }
}

void Metadata::dump(std::FILE* file) const
{
    for (const Record& each : m_records) {
        if (each.description.empty())
            std::fprintf(file, "   %s:\n", printable(each.key).c_str());
        else
            std::fprintf(file, "   %s (%s):\n", printable(each.key).c_str(),
                         printable(each.description).c_str());
        if (each.type == METADATA_STRING) {
            std::fprintf(file, "      '%s'\n",
                         printable(reinterpret_cast<const char*>(each.value.data())).c_str());
        } else if (each.type == METADATA_BLOB) {
            std::fprintf(file, "      (blob of %zu bytes)\n", each.bytes());
        } else if (each.type == METADATA_FLOAT64_ARRAY) {
            std::fprintf(file, "      {");
            for (std::size_t i = 0; i < each.length(); ++i) {
                double value;
                std::memcpy(&value, each.value.data() + i * sizeof value, sizeof value);
                std::fprintf(file, " %f", value);
            }
            std::fprintf(file, " }\n");
        }
    }
}

} // namespace Quillmoran
