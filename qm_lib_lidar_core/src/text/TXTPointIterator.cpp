#include "text/TXTPointIterator.h"

#include "framework/ProgressDelegate.h"
#include "platform/Base.h"

#include <cstring>
#include <string_view>

namespace Quillmoran {

namespace {

constexpr std::uint64_t reportInterval = 1000; // lines
constexpr const char* activity = "reading text file";

std::string countOf(std::size_t fields)
{
    return std::to_string(fields) + (fields == 1 ? " field" : " fields");
}

} // namespace

TXTPointIterator* TXTPointIterator::create()
{
    return new TXTPointIterator;
}

void TXTPointIterator::init(IO* io, const std::string& name, const TextOptions& options, const Bounds& bounds,
                            double fraction, const PointInfo& requested, ProgressDelegate* delegate)
{
    PointIterator::init(bounds, fraction, requested, delegate);
    m_name = name;
    m_strict = options.strict;
    m_layout = options.layout;
    bindFields(m_layout, requested);
    m_lines.init(io, name, delegate);
    for (std::size_t i = 0; i < options.skipLines; ++i)
        if (!m_lines.next())
            break;
}

void TXTPointIterator::bindFields(const PointInfo& fileLayout, const PointInfo& requested)
{
    if (requested.getNumChannels() > fileLayout.getNumChannels())
        QM_THROW(-1, "tring to extract more channels than fields");
    const auto parserOf = [this](DataType type) {
        const auto parser = m_strict ? FieldParse::getStrict(type) : FieldParse::getLenient(type);
        if (!parser)
            QM_THROW(40011);
        return parser;
    };
    m_fields.assign(fileLayout.getNumChannels(), Field{FieldParse::skip, 0, nullptr});
    for (std::size_t i = 0; i < requested.getNumChannels(); ++i) {
        const ChannelInfo& channel = requested.getChannel(i);
        const int column = fileLayout.getChannelIndex(channel.getName());
        if (column < 0)
            QM_THROW(40012, "requesting channel not in the source");
        const auto index = static_cast<std::size_t>(column);
        if (channel.getDataType() != fileLayout.getChannel(index).getDataType())
            QM_THROW(40010);
        Field& field = m_fields[index];
        if (field.parser != FieldParse::skip)
            m_copies.push_back({field.channel, i});
        else
            field = {parserOf(channel.getDataType()), i, nullptr};
    }
}

void TXTPointIterator::bindSamples(PointData& buffer)
{
    for (Field& field : m_fields)
        if (field.parser != FieldParse::skip)
            field.samples = buffer.getChannel(field.channel).getData();
}

bool TXTPointIterator::parseLine(std::size_t index) const
{
    const std::string_view line = m_lines.line();
    const char* text = line.data();
    const char* const end = text + (m_strict ? line.size() : std::strlen(text));
    for (const Field& field : m_fields) {
        while (FieldParse::isSeparator(*text))
            ++text;
        if (*text == '\0' || *text == '#') {
            checkEnd(text);
            const auto numFields = static_cast<std::size_t>(&field - m_fields.data());
            if (numFields != 0)
                throwWrongCount(numFields, text);
            return false;
        }
        const char* const after = field.parser(text, end, field.samples, index);
        if (!after)
            throwBadField(static_cast<std::size_t>(&field - m_fields.data()), text);
        text = after;
    }
    if (m_strict && *text != '\0') {
        while (FieldParse::isSeparator(*text))
            ++text;
        if (*text != '\0' && *text != '#')
            throwWrongCount(m_fields.size(), text);
    }
    checkEnd(text);
    return !m_fields.empty();
}

// A NUL ends a line for all that read text; strictly it must be the one after its last character.
void TXTPointIterator::checkEnd(const char* text) const
{
    const std::string_view line = m_lines.line();
    const auto at = static_cast<std::size_t>(text - line.data());
    if (m_strict && *text == '\0' && at != line.size())
        QM_THROW(40005, "%sline contains a NUL character", m_lines.location(at + 1).c_str());
}

void TXTPointIterator::throwBadField(std::size_t field, const char* text) const
{
    if (m_name.empty() && !m_strict)
        QM_THROW(40005, "bad TXT file format");
    const std::string_view line = m_lines.line();
    const std::string location = m_lines.location(static_cast<std::size_t>(text - line.data()) + 1);
    QM_THROW(40005, "%s%s", location.c_str(),
             FieldParse::explain(text, line.data() + line.size(), m_layout.getChannel(field)).c_str());
}

void TXTPointIterator::throwWrongCount(std::size_t numFields, const char* text) const
{
    if (m_name.empty() && !m_strict)
        QM_THROW(40005, "line %lu has %lu fields but was expecting at least %lu.",
                 static_cast<unsigned long>(m_numLines), static_cast<unsigned long>(numFields),
                 static_cast<unsigned long>(m_fields.size()));
    const auto column = static_cast<std::size_t>(text - m_lines.line().data()) + 1;
    while (*text != '\0' && *text != '#') {
        ++numFields;
        text = FieldParse::skip(text, nullptr, nullptr, 0);
        while (FieldParse::isSeparator(*text))
            ++text;
    }
    QM_THROW(40005, "%s%s, expected %zu", m_lines.location(column).c_str(), countOf(numFields).c_str(),
             m_fields.size());
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
    while (count < capacity && m_lines.next()) {
        ++m_numLines;
        // A point that is not kept is overwritten by the next line's.
        if (parseLine(count) && isWanted(x[count], y[count], z[count]) && sample())
            ++count;
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
