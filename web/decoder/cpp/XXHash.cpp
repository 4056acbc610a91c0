// The functions of xxHash, whose library is not built for WebAssembly: its header can define them.
#define XXH_STATIC_LINKING_ONLY
#define XXH_IMPLEMENTATION
#include <xxhash.h>
