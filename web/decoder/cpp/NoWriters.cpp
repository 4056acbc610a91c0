// The table of coders names the writers, which a decoder does not have.
#include "encode/coders/SubblockWriter.h"

namespace Quillmoran {

std::unique_ptr<SubblockWriter> createMQWriter(const SubblockFormat&)
{
    return nullptr;
}

std::unique_ptr<SubblockWriter> createACWriter(const SubblockFormat&)
{
    return nullptr;
}

std::unique_ptr<SubblockWriter> createGZWriter(const SubblockFormat&)
{
    return nullptr;
}

} // namespace Quillmoran
