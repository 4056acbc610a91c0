// List files, which name files and other lists, themselves among them.
#include "support/FuzzTarget.h"
#include <vxunpack/FilePointSourceManager.h>

namespace Quillmoran::Fuzz {

std::uint64_t runList(Input input)
{
    const std::string path = storeInput(input, "self.list");
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->setTextOptions(false, layoutXYZ(), 0);
    files->addListFile(path.c_str());
    for (std::size_t i = 0; i < files->getNumSources(); ++i)
        require(files->getFilename(i) != nullptr, "a file has no name");
    return 0;
}

} // namespace Quillmoran::Fuzz
