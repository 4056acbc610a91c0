#include <vxunpack/ChannelInfo.h>

namespace Quillmoran {

void ChannelInfo::init(const char* name, DataType type, int bits, double quantization)
{
    if (name != getName())
        m_name = name ? std::optional<std::string>(name) : std::nullopt;
    m_dataType = type;
    m_bits = bits >= 1 ? bits : static_cast<int>(DataTypeUtils::getSize(type) * 8);
    m_quantization = quantization;
}

bool ChannelInfo::operator==(const ChannelInfo& other) const noexcept
{
    if (this == &other)
        return true;
    return isNamed(other.getName()) && m_dataType == other.m_dataType && m_bits == other.m_bits &&
           m_quantization == other.m_quantization;
}

} // namespace Quillmoran
