#include "pdal/PDALModule.h"

#include "pdal/PDALPointReader.h"
#include "pdal/PDALPointWriter.h"

using namespace Quillmoran;

PointReader* qmCreatePDALPointReader(const char* path)
{
    Scoped<PDALPointReader> reader(PDALPointReader::create());
    reader->init(path);
    return reader.detach();
}

PointWriter* qmCreatePDALPointWriter(PointSource* source, const char* path)
{
    Scoped<PDALPointWriter> writer(PDALPointWriter::create());
    writer->init(source, path);
    return writer.detach();
}
