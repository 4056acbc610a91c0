// Opens files on servers by their names (files/RemoteName.h). The libraries that talk to servers are in modules, which
// are loaded when the first such file is opened.
#pragma once

#include <vxunpack/IO.h>

namespace Quillmoran {

// The remote file of that name, not opened. Throws General "cannot read '%s': the module for remote files is not
// installed".
Scoped<IO> makeRemoteFile(const char* name);

} // namespace Quillmoran
