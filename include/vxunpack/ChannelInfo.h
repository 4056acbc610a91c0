// The description of one channel: a name, a sample type, the significant bits and the quantization step.
#pragma once

#include <vxunpack/DataType.h>
#include <vxunpack/Export.h>

#include <optional>
#include <string>

namespace Quillmoran {

class QM_API ChannelInfo
{
public:
    // A blank channel: no name, INVALID, 0 bits, no quantization.
    ChannelInfo() = default;

    // `bits` of 0 or less means all bits of the type. `quantization` is the step between two values, 0 for
    // none.
    void init(const char* name, DataType type, int bits, double quantization);
    void init(const ChannelInfo& other) { *this = other; }

    const char* getName() const noexcept { return m_name ? m_name->c_str() : nullptr; } // null when blank
    DataType getDataType() const noexcept { return m_dataType; }
    int getBits() const noexcept { return m_bits; }
    double getQuantization() const noexcept { return m_quantization; }
    void setQuantization(double quantization) noexcept { m_quantization = quantization; }

    // Exact comparison with case; a missing name on either side never matches.
    bool isNamed(const char* name) const noexcept { return name && m_name && *m_name == name; }

    // A channel equals itself; two channels without names are unequal.
    bool operator==(const ChannelInfo& other) const noexcept;

protected:
    void setType(DataType type) noexcept { m_dataType = type; }

private:
    std::optional<std::string> m_name;
    DataType m_dataType = INVALID;
    int m_bits = 0;
    double m_quantization = 0.0;
};

} // namespace Quillmoran
