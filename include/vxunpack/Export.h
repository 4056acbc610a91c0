// QM_API marks the classes and functions that libvxunpack exports. Everything else is hidden
// (-fvisibility=hidden). Exception types and public base classes need the mark as well: without it, programs
// could not catch them by type. QM_HIDDEN marks the private classes in an exported class, which would be
// exported with it.
#pragma once

#define QM_API __attribute__((visibility("default")))
#define QM_HIDDEN __attribute__((visibility("hidden")))
