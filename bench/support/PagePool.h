// On a virtual machine the first use of a page of memory can cost ten times the writing into it, and pages
// that were free for a while count as unused. How fast a file is written then tells more of the machine's
// past than of the program.
#pragma once

#include <cstdint>
#include <string>

namespace Quillmoran::Benchmarks {

// Has the system use pages for so many bytes of a file in that directory, and frees them again, so that
// whatever is written next gets them.
void refreshPages(const std::string& directory, std::uint64_t bytes);

} // namespace Quillmoran::Benchmarks
