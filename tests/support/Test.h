// What nearly every test uses.
#pragma once

#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include "support/ProgressLog.h"
#include "support/Random.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Quillmoran::Testing {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

using Numbers = std::vector<double>;
using Strings = std::vector<std::string>;

} // namespace Quillmoran::Testing
