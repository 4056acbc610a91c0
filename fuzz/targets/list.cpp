// List files, which name files and other lists, themselves among them.
#include "support/FuzzTarget.h"
#include "support/Layouts.h"
#include "support/TemporaryDirectory.h"
#include <vxunpack/FilePointSourceManager.h>

namespace Quillmoran::Fuzz {

std::uint64_t run(Input input)
{
    static const Testing::TemporaryDirectory directory;
    static const std::string path = directory / "self.list";
    Testing::writeFile(path, std::vector<std::uint8_t>(input.begin(), input.end()));
    const Scoped<FilePointSourceManager> files(FilePointSourceManager::create());
    files->setTextOptions(false, Testing::layoutXYZ(), 0);
    files->addListFile(path.c_str());
    for (std::size_t i = 0; i < files->getNumSources(); ++i)
        require(files->getFilename(i) != nullptr, "a file has no name");
    return 0;
}

} // namespace Quillmoran::Fuzz
