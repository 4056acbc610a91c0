// Names of files on servers: URLs with the scheme http, https, s3, gs or az, in any case, and paths of the virtual file
// systems of GDAL ("/vsicurl/...", "/vsizip/...").
#pragma once

#include <string>
#include <string_view>

namespace Quillmoran::RemoteName {

bool isRemote(std::string_view name) noexcept;
// Whether the scheme is http or https.
bool isURL(std::string_view name) noexcept;
// The name without the query and the fragment of a URL, which follow the ending of the file.
std::string_view withoutQuery(std::string_view name) noexcept;
// "/vsis3/bucket/a.vxl" for "s3://bucket/a.vxl"; other names as they are.
std::string getVirtualPath(const std::string& name);

} // namespace Quillmoran::RemoteName
