#include "text/TXTPointIterator.h"

#include "model/ChannelNames.h"
#include "model/NameIndex.h"
#include "text/FieldFormat.h"
#include <vxunpack/Base.h>
#include <vxunpack/ProgressDelegate.h>

#include <cstring>
#include <string_view>
#include <utility>

namespace Quillmoran {

namespace {

constexpr std::uint64_t reportInterval = 1000; // lines
constexpr const char* activity = "reading text file";

// The maximum of a standard channel that has less than 8 bits in LAS; 0 for other channels.
std::uint8_t largestOf(const ChannelInfo& channel)
{
    constexpr std::pair<const char*, std::uint8_t> narrow[] = {
        {ChannelNames::returnNum, 15},     {ChannelNames::numReturns, 15}, {ChannelNames::scanDir, 1},
        {ChannelNames::edgeFlightLine, 1}, {ChannelNames::classFlags, 15}, {ChannelNames::scannerChannel, 3},
    };
    for (const auto& [name, largest] : narrow)
        if (channel.isNamed(name) && channel.getDataType() == UINT8)
            return largest;
    return 0;
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
        QM_THROW(ErrorCode::General, "tring to extract more channels than fields");
    const auto parserOf = [this](DataType type) {
        const auto parser = FieldParse::get(type, m_strict);
        if (!parser)
            QM_THROW(ErrorCode::TextField);
        return parser;
    };
    const NameIndex columns(fileLayout);
    m_fields.assign(fileLayout.getNumChannels(), Field{FieldParse::skip, 0, nullptr});
    for (std::size_t i = 0; i < requested.getNumChannels(); ++i) {
        const ChannelInfo& channel = requested.getChannel(i);
        const auto column = columns.find(channel.getName());
        if (!column)
            QM_THROW(ErrorCode::NoSuchChannel, "requesting channel not in the source");
        if (channel.getDataType() != fileLayout.getChannel(*column).getDataType())
            QM_THROW(ErrorCode::ChannelType);
        Field& field = m_fields[*column];
        if (field.parser != FieldParse::skip)
            m_copies.push_back({field.channel, i});
        else
            field = {parserOf(channel.getDataType()), i, nullptr,
                     m_strict ? largestOf(channel) : std::uint8_t{0}};
    }
}

void TXTPointIterator::bindSamples(PointData& buffer)
{
    for (Field& field : m_fields)
        if (field.parser != FieldParse::skip)
            field.samples = buffer.getChannel(field.channel).getData();
}

const char* TXTPointIterator::skipSeparators(const char* text, std::size_t field) const
{
    std::size_t commas = field == 0 ? 1 : 0;
    for (; FieldParse::isSeparator(*text); ++text)
        if (*text == ',' && commas++ != 0 && m_strict)
            QM_THROW(ErrorCode::TextRead, "%sa field is empty", locationOf(text).c_str());
    return text;
}

std::string TXTPointIterator::locationOf(const char* text) const
{
    return m_lines.location(static_cast<std::size_t>(text - m_lines.line().data()) + 1);
}

// Concatenated tables can have different columns.
void TXTPointIterator::checkHeader(std::string_view line)
{
    PointInfo columns;
    if (!FieldFormat::parseHeader(line, columns))
        return;
    if (m_header.empty())
        m_header = line;
    else if (m_header != line)
        QM_THROW(ErrorCode::TextRead, "%sthe columns differ from those of the first header line",
                 m_lines.location().c_str());
}

bool TXTPointIterator::parseLine(std::size_t index)
{
    const std::string_view line = m_lines.line();
    const char* text = line.data();
    const char* const end = text + (m_strict ? line.size() : std::strlen(text));
    if (m_strict && *text == '#')
        checkHeader(line);
    for (const Field& field : m_fields) {
        text = skipSeparators(text, static_cast<std::size_t>(&field - m_fields.data()));
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
        if (field.largest != 0 && static_cast<const std::uint8_t*>(field.samples)[index] > field.largest)
            throwTooLarge(field, text, after);
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

// A NUL ends the fields of a line; in strict mode only the NUL after the last character may do so.
void TXTPointIterator::checkEnd(const char* text) const
{
    const std::string_view line = m_lines.line();
    if (m_strict && *text == '\0' && text != line.data() + line.size())
        QM_THROW(ErrorCode::TextRead, "%sline contains a NUL character", locationOf(text).c_str());
}

void TXTPointIterator::throwBadField(std::size_t field, const char* text) const
{
    if (m_name.empty() && !m_strict)
        QM_THROW(ErrorCode::TextRead, "bad TXT file format");
    const std::string_view line = m_lines.line();
    QM_THROW(ErrorCode::TextRead, "%s%s", locationOf(text).c_str(),
             FieldParse::explain(text, line.data() + line.size(), m_layout.getChannel(field)).c_str());
}

void TXTPointIterator::throwTooLarge(const Field& field, const char* text, const char* after) const
{
    const auto index = static_cast<std::size_t>(&field - m_fields.data());
    QM_THROW(ErrorCode::TextRead, "%s%s does not fit %s (0 to %d)", locationOf(text).c_str(),
             std::string(text, after).c_str(), m_layout.getChannel(index).getName(), field.largest);
}

void TXTPointIterator::throwWrongCount(std::size_t numFields, const char* text) const
{
    if (m_name.empty() && !m_strict)
        QM_THROW(ErrorCode::TextRead, "line %lu has %lu fields but was expecting at least %lu.",
                 static_cast<unsigned long>(m_numLines), static_cast<unsigned long>(numFields),
                 static_cast<unsigned long>(m_fields.size()));
    const std::string location = locationOf(text);
    while (*text != '\0' && *text != '#') {
        ++numFields;
        text = FieldParse::skip(text, nullptr, nullptr, 0);
        while (FieldParse::isSeparator(*text))
            ++text;
    }
    QM_THROW(ErrorCode::TextRead, "%s%zu %s, expected %zu", location.c_str(), numFields,
             numFields == 1 ? "field" : "fields", m_fields.size());
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
        // The next point overwrites a point that is not selected.
        if (parseLine(count) && isWanted(x[count], y[count], z[count]) && sample())
            ++count;
        if (m_numLines % reportInterval == 0 && getDelegate()) {
            if (getDelegate()->getCancelled())
                QM_THROW(ErrorCode::Cancelled, "operation cancelled.");
            reportLines();
        }
    }
    for (const Copy& copy : m_copies)
        ChannelData::copy(buffer.getChannel(copy.to), 0, buffer.getChannel(copy.from), 0, count);
    reportLines();
    return count;
}

} // namespace Quillmoran
