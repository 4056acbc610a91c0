// The codes of `Error`. The values are stable, so that programs can log and compare them.
#pragma once

namespace Quillmoran {

// An OSError has the value of errno, a positive number below 40000, as its code.
enum class ErrorCode : int
{
    General = -1, // a usage error, or a failure without a code of its own

    // Core
    TemporaryFileRead = 40001, // a temporary file is shorter than the data written to it
    Write = 40002,             // the output accepts no more bytes
    FileProbe = 40003,         // a file is too short to identify its type
    TextRead = 40005,          // malformed text input
    Cancelled = 40006,         // the progress delegate or a signal asked to stop
    InvalidArgument = 40007,   // an argument is missing or out of range, or init() was not called
    MetadataRead = 40008,      // malformed metadata records
    MetadataWrite = 40009,     // metadata records cannot be written
    ChannelType = 40010,       // a channel does not have the requested sample type
    TextField = 40011,         // the sample type of a channel has no text form
    NoSuchChannel = 40012,     // a channel index or name is unknown
    IndexRead = 40014,         // malformed R-tree
    IndexWrite = 40015,        // an R-tree cannot be written
    IndexEmpty = 40016,        // an R-tree without boxes has no bounds

    // .vxl files
    ChunkHeaderRead = 40201,     // a chunk header is truncated
    ChunkHeaderWrite = 40202,    // a chunk header cannot be written
    WaveletHeaderRead = 40203,   // malformed wavelet header or channel record
    WaveletHeaderWrite = 40204,  // a channel record cannot be written
    IndexChunkRead = 40205,      // malformed index chunk
    SubbandRead = 40207,         // malformed subband chunk or subblock
    ContainerRead = 40209,       // malformed file header or group chunk
    Unsupported = 40211,         // not a .vxl file, or an unsupported version
    MetadataChunkRead = 40212,   // malformed metadata chunk
    WKTChunkRead = 40214,        // malformed chunk of the coordinate system
    ClassNamesChunkRead = 40216, // malformed chunk of class names
    KernelDataType = 40218,      // a channel record has an unknown sample type
    ExtendedRecordRead = 40219,  // malformed extended header chunk
    ExtendedHeaderRead = 40220,  // the version of the extended header is missing
    Inflate = 40230,             // zlib cannot inflate a subblock
    DigestDiffers = 40231,       // points, or other parts of a file, differ from their stored digest

    // Exchange formats
    PointWrite = 40601,       // a record of the output cannot be written
    LASRead = 40602,          // malformed LAS or LAZ content
    LASOpen = 40606,          // a LAS or LAZ file cannot be opened
    NotRepresentable = 40607, // the output format cannot represent a channel, a value or the number of points
    Waveforms = 40608,        // a LAS file has waveforms, which are not supported
    BPFRead = 40609,          // a BPF file cannot be opened or is malformed
    OutputCreate = 40610,     // an output cannot be created

    // Remote files
    RemoteRead = 40801,     // a server cannot be reached, or refuses or lacks the file
    RemoteChanged = 40802,  // a file has changed on its server while it was read
    RemoteForbidden = 40803 // a file names a remote file, and this was not allowed
};

} // namespace Quillmoran
