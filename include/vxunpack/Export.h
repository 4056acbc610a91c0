// QM_API marks what a shared library of this project shows to others. Everything else is hidden
// (-fvisibility=hidden); exception types and public bases need the mark to be matched across libraries.
#pragma once

#define QM_API __attribute__((visibility("default")))
