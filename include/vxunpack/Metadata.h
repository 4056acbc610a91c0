// A list of records, each with a key, an optional description and a typed value. Readers fill it from their
// files, writers copy it to their outputs. Several records may have the same key. A value type without locks.
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
    // Appends a record; everything is copied. `length` is the number of doubles of an array or bytes of a
    // blob, and is ignored for a string, which ends with a NUL. Throws InvalidArgument "metadata key not
    // given" or "metadata value not given".
    void add(const char* key, const char* description, MetadataDataType type, const void* value,
             std::size_t length);
    // Appends copies of all records; `other` may be this object.
    void add(const Metadata& other);

    std::size_t getNumRecords() const noexcept { return m_records.size(); }

    // By index: throws InvalidArgument "bad index" if out of range. Pointers belong to this object and are
    // valid until it changes. A value with a length of 0 is null. The length of a string includes its NUL.
    void get(std::size_t index, const char*& key, const char*& description, MetadataDataType& type,
             const void*& value, std::size_t& length) const;
    const char* getKey(std::size_t index) const { return record(index).key.c_str(); }
    const char* getDescription(std::size_t index) const; // null if there is none
    MetadataDataType getDataType(std::size_t index) const { return record(index).type; }
    const void* getValue(std::size_t index) const;
    std::size_t getValueLength(std::size_t index) const { return record(index).length(); }

    // Gets the first record with the key; returns false if there is none.
    bool get(const char* key, const char*& description, MetadataDataType& type, const void*& value,
             std::size_t& length) const;
    bool has(const char* key) const noexcept { return getKeyIndex(key) >= 0; }
    int getKeyIndex(const char* key) const noexcept; // -1 if there is none

    // These remove all records, one record (InvalidArgument "bad index"), the first record with a key, and
    // all records with a key.
    void remove() noexcept { m_records.clear(); }
    void remove(std::size_t index);
    void remove(const char* key);
    void removeAll(const char* key);

    // Sorts by key, bytewise; the order of records with the same key is unspecified.
    void sort();

    // The format in files: version, count, then the key, description, type and value of each record; a 32-bit
    // length precedes each text and value. read() appends records and throws MetadataRead; write() throws
    // MetadataWrite.
    void write(StreamWriter& writer) const;
    void read(StreamReader& reader);

    // Prints the records in human-readable form.
    void dump(std::FILE* file) const;

private:
    struct Record
    {
        std::string key;
        std::string description; // empty: none
        MetadataDataType type;
        // In the byte order of the machine. A spare NUL follows the value, so that a string from a file is
        // always terminated.
        std::vector<unsigned char> value;

        std::size_t bytes() const noexcept { return value.size() - 1; }
        std::size_t length() const noexcept;
    };

    const Record& record(std::size_t index) const;

    std::vector<Record> m_records;
};

} // namespace Quillmoran
