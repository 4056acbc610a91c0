// The codes of `Error`. The values are stable: programs may store and compare them.
#pragma once

namespace Quillmoran {

// Positive values below 40000 are values of errno, carried by OSError.
enum class ErrorCode : int
{
    General = -1, // a usage error, or an input or option that no other code covers

    // Core
    TemporaryFileRead = 40001, // a temporary file is shorter than what was written to it
    Write = 40002,             // the output takes no more bytes
    FileProbe = 40003,         // a file is too short to identify
    TextRead = 40005,          // malformed text input
    Cancelled = 40006,         // the progress delegate asked to stop
    InvalidArgument = 40007,   // an argument is missing, out of range or inconsistent
    MetadataRead = 40008,      // malformed metadata records
    MetadataWrite = 40009,     // metadata records cannot be written
    ChannelType = 40010,       // a channel has another sample type than requested
    TextField = 40011,         // a channel has no field in the text format
    NoSuchChannel = 40012,     // a channel index or name is unknown
    IndexRead = 40014,         // malformed R-tree
    IndexWrite = 40015,        // an R-tree cannot be written
    IndexEmpty = 40016,        // the bounds of an R-tree without boxes were requested

    // .vxl files
    ChunkHeaderRead = 40201,     // a chunk header is cut
    ChunkHeaderWrite = 40202,    // a chunk header cannot be written
    WaveletHeaderRead = 40203,   // malformed wavelet header or channel record
    WaveletHeaderWrite = 40204,  // a channel record cannot be written
    IndexChunkRead = 40205,      // malformed index chunk
    SubbandRead = 40207,         // malformed subband chunk or subblock
    ContainerRead = 40209,       // malformed file header or group chunk
    Unsupported = 40211,         // another file type, or a version that is not supported
    MetadataChunkRead = 40212,   // malformed metadata chunk
    WKTChunkRead = 40214,        // malformed coordinate system chunk
    ClassNamesChunkRead = 40216, // malformed class names chunk
    KernelDataType = 40218,      // a channel record has an unknown sample type
    ExtendedRecordRead = 40219,  // malformed extended header chunk
    ExtendedHeaderRead = 40220,  // the extended header has no version
    Inflate = 40230,             // zlib cannot inflate a subblock

    // Exchange formats
    PointWrite = 40601,       // a record of the output cannot be written
    LASRead = 40602,          // malformed LAS or LAZ content
    LASOpen = 40606,          // a LAS or LAZ file cannot be opened
    NotRepresentable = 40607, // the output format cannot hold a channel, a value or the number of points
    Waveforms = 40608,        // a LAS file has waveforms, which are not supported
    BPFRead = 40609,          // a BPF file cannot be opened or is malformed
    OutputCreate = 40610      // an output cannot be created
};

} // namespace Quillmoran
