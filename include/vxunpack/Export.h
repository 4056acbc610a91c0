// QM_API marks the classes and functions that libvxunpack exports. Everything else is hidden
// (-fvisibility=hidden). Exception types and public base classes need the mark as well: without it, programs
// could not catch them by type.
#pragma once

#define QM_API __attribute__((visibility("default")))
