// The description of one channel: name, sample type, significant bits and quantization step. A value type
// without locks: const methods may be called concurrently.
#pragma once

#include <vxunpack/DataType.h>
#include <vxunpack/Export.h>

#include <optional>
#include <string>

namespace Quillmoran {

class QM_API ChannelInfo
{
public:
    // A blank channel: no name, type INVALID, 0 bits, no quantization.
    ChannelInfo() = default;

    // The name is copied and may be null. `bits` of 0 or less means all bits of the type. `quantization` is
    // the step between two values in the unit of the channel, 0 if there is none.
    void init(const char* name, DataType type, int bits, double quantization);
    void init(const ChannelInfo& other) { *this = other; }

    const char* getName() const noexcept { return m_name ? m_name->c_str() : nullptr; } // null when blank
    DataType getDataType() const noexcept { return m_dataType; }
    int getBits() const noexcept { return m_bits; }
    double getQuantization() const noexcept { return m_quantization; }
    void setQuantization(double quantization) noexcept { m_quantization = quantization; }

    // Compares exactly, with case; false if either name is missing.
    bool isNamed(const char* name) const noexcept { return name && m_name && *m_name == name; }

    // Compares all four properties. A channel equals itself; two channels without names are unequal.
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
