#include "text/TXTPointIterator.h"

#include "framework/ProgressDelegate.h"
#include "platform/Base.h"
#include "text/NumberParse.h"

#include <cstring>
#include <type_traits>

namespace Quillmoran {

namespace {

constexpr std::size_t streamBufferSize = 4096;
constexpr std::uint64_t reportInterval = 1000; // lines
constexpr const char* activity = "reading text file";

bool isSeparator(char c) noexcept
{
    return c == ',' || isWhiteSpace(c);
}

[[noreturn]] void throwBadField()
{
    QM_THROW(40005, "bad TXT file format");
}

// A sign and digits; too large a number wraps. "12.5" is the field 12, and ".5" is left for the next one.
template <class T>
const char* parseInteger(const char* text, const char*, void* samples, std::size_t index)
{
    const char* at = text + (*text == '-' || *text == '+');
    std::uint64_t value = 0;
    for (; *at >= '0' && *at <= '9'; ++at)
        value = value * 10 + static_cast<std::uint64_t>(*at - '0');
    if (at == text)
        throwBadField();
    static_cast<T*>(samples)[index] = static_cast<T>(*text == '-' ? 0 - value : value);
    return at;
}

template <class T>
const char* parseFloat(const char* text, const char* end, void* samples, std::size_t index)
{
    double value = 0;
    const char* const after = parseDouble(text, end, value);
    if (after == text)
        throwBadField();
    static_cast<T*>(samples)[index] = static_cast<T>(value);
    return after;
}

const char* skipField(const char* text, const char*, void*, std::size_t)
{
    while (*text != '\0' && !isSeparator(*text))
        ++text;
    return text;
}

} // namespace

TXTPointIterator* TXTPointIterator::create()
{
    return new TXTPointIterator;
}

TXTPointIterator::Parser TXTPointIterator::parserOf(DataType type)
{
    Parser parser = nullptr;
    const bool known = visitDataType(type, [&parser](auto sample) {
        using T = decltype(sample);
        if constexpr (std::is_floating_point_v<T>)
            parser = parseFloat<T>;
        else
            parser = parseInteger<T>;
    });
    if (!known)
        QM_THROW(40011);
    return parser;
}

void TXTPointIterator::init(IO* io, const PointInfo& fileLayout, std::size_t skipLines, const Bounds& bounds,
                            double fraction, const PointInfo& requested, ProgressDelegate* delegate)
{
    PointIterator::init(bounds, fraction, requested, delegate);
    bindFields(fileLayout, requested);
    m_stream.init(io, true, streamBufferSize);
    for (std::size_t i = 0; i < skipLines; ++i)
        if (!m_stream.get_str(m_line.text, m_line.capacity))
            break;
}

void TXTPointIterator::bindFields(const PointInfo& fileLayout, const PointInfo& requested)
{
    if (requested.getNumChannels() > fileLayout.getNumChannels())
        QM_THROW(-1, "tring to extract more channels than fields");
    m_fields.assign(fileLayout.getNumChannels(), Field{skipField, 0, nullptr});
    for (std::size_t i = 0; i < requested.getNumChannels(); ++i) {
        const ChannelInfo& channel = requested.getChannel(i);
        const int column = fileLayout.getChannelIndex(channel.getName());
        if (column < 0)
            QM_THROW(40012, "requesting channel not in the source");
        const auto index = static_cast<std::size_t>(column);
        if (channel.getDataType() != fileLayout.getChannel(index).getDataType())
            QM_THROW(40010);
        Field& field = m_fields[index];
        if (field.parser != skipField)
            m_copies.push_back({field.channel, i});
        else
            field = {parserOf(channel.getDataType()), i, nullptr};
    }
}

void TXTPointIterator::bindSamples(PointData& buffer)
{
    for (Field& field : m_fields)
        if (field.parser != skipField)
            field.samples = buffer.getChannel(field.channel).getData();
}

std::size_t TXTPointIterator::parseLine(std::size_t index) const
{
    const char* text = m_line.text;
    const char* const end = text + std::strlen(text);
    std::size_t numFields = 0;
    for (const Field& field : m_fields) {
        while (isSeparator(*text))
            ++text;
        if (*text == '\0' || *text == '#')
            break;
        text = field.parser(text, end, field.samples, index);
        ++numFields;
    }
    return numFields;
}

void TXTPointIterator::reportLines()
{
    if (getDelegate())
        getDelegate()->updateCompleted(static_cast<double>(m_numLines - m_numReported), activity);
    m_numReported = m_numLines;
}

std::size_t TXTPointIterator::getNextPoints(PointData& buffer)
{
    reportLines();
    bindSamples(buffer);
    const double* const x = buffer.getX();
    const double* const y = buffer.getY();
    const double* const z = buffer.getZ();
    const std::size_t capacity = buffer.getNumSamples();
    std::size_t count = 0;
    while (count < capacity && m_stream.get_str(m_line.text, m_line.capacity)) {
        const std::size_t numFields = parseLine(count);
        ++m_numLines;
        if (numFields == m_fields.size()) {
            // A point that is not kept is overwritten by the next line's.
            if (getBounds().contains(x[count], y[count], z[count]) && sample())
                ++count;
        } else if (numFields != 0) {
            QM_THROW(40005, "line %lu has %lu fields but was expecting at least %lu.",
                     static_cast<unsigned long>(m_numLines), static_cast<unsigned long>(numFields),
                     static_cast<unsigned long>(m_fields.size()));
        }
        if (m_numLines % reportInterval == 0 && getDelegate()) {
            if (getDelegate()->getCancelled())
                QM_THROW(40006, "operation cancelled.");
            reportLines();
        }
    }
    for (const Copy& copy : m_copies)
        ChannelData::copy(buffer.getChannel(copy.to), 0, buffer.getChannel(copy.from), 0, count);
    reportLines();
    return count;
}

} // namespace Quillmoran
