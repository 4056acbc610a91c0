// An ordered list of records: a key, an optional description and a typed value. Readers fill it from their
// files, writers copy it into their outputs. Several records may share a key.
#pragma once

#include <vxunpack/Export.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace Quillmoran {

class StreamReader;
class StreamWriter;

enum MetadataDataType : std::uint16_t
{
    METADATA_STRING = 1,
    METADATA_BLOB = 2,
    METADATA_FLOAT64_ARRAY = 3
};

class QM_API Metadata
{
public:
    // Appends a record. `length` counts doubles for an array and bytes for a blob; a string's is found out
    // (with its NUL). Errors InvalidArgument: "metadata key not given", "metadata value not given".
    void add(const char* key, const char* description, MetadataDataType type, const void* value,
             std::size_t length);
    // Appends copies of all records of another store.
    void add(const Metadata& other);

    std::size_t getNumRecords() const noexcept { return m_records.size(); }

    // By index; an index out of range is InvalidArgument "bad index". Pointers stay owned by the store and end with the
    // next change of it. The value of a record read with a length of 0 is null.
    void get(std::size_t index, const char*& key, const char*& description, MetadataDataType& type,
             const void*& value, std::size_t& length) const;
    const char* getKey(std::size_t index) const { return record(index).key.c_str(); }
    const char* getDescription(std::size_t index) const; // null when there is none
    MetadataDataType getDataType(std::size_t index) const { return record(index).type; }
    const void* getValue(std::size_t index) const;
    std::size_t getValueLength(std::size_t index) const { return record(index).length(); }

    // The first record with the key; false when there is none.
    bool get(const char* key, const char*& description, MetadataDataType& type, const void*& value,
             std::size_t& length) const;
    bool has(const char* key) const noexcept { return getKeyIndex(key) >= 0; }
    int getKeyIndex(const char* key) const noexcept; // -1 when there is none

    void remove() noexcept { m_records.clear(); }
    void remove(std::size_t index);
    void remove(const char* key);
    void removeAll(const char* key);

    // Orders by key, bytewise; records of one key keep no particular order.
    void sort();

    // The serialised form: version, count, then per record key, description, type and value, each text and
    // value behind its 32-bit length. read() appends; its errors are MetadataRead, those of write() MetadataWrite.
    void write(StreamWriter& writer) const;
    void read(StreamReader& reader);

    // Prints the records for people.
    void dump(std::FILE* file) const;

private:
    struct Record
    {
        std::string key;
        std::string description; // empty: none
        MetadataDataType type;
        // Host byte order; one spare NUL stands behind the value, so that a string from a file always ends.
        std::vector<unsigned char> value;

        std::size_t bytes() const noexcept { return value.size() - 1; }
        std::size_t length() const noexcept;
    };

    const Record& record(std::size_t index) const;

    std::vector<Record> m_records;
};

} // namespace Quillmoran
