// Opens files on servers by their names. The libraries that talk to servers are in modules, which are loaded when
// the first such file is opened.
#pragma once

#include <vxunpack/IO.h>

#include <string_view>

namespace Quillmoran::RemoteFile {

// Whether a name is that of a remote file: a URL with the scheme http, https, s3, gs or az, in any case, or a path
// of a virtual file system of GDAL ("/vsicurl/...").
bool isRemote(std::string_view name) noexcept;

// The name without the query and the fragment of a URL, which follow the ending of the file.
std::string_view withoutQuery(std::string_view name) noexcept;

// The file of that name. It is not opened. Throws General "cannot read '%s': the module for remote files is not
// installed".
Scoped<IO> make(const char* name);

} // namespace Quillmoran::RemoteFile
