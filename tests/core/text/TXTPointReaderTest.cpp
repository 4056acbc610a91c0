#include <vxunpack/TXTPointReader.h>

#include "support/ByteStore.h"
#include "support/Errors.h"
#include "support/TemporaryDirectory.h"
#include "text/FieldFormat.h"
#include "text/LineReader.h"
#include <vxunpack/ProgressDelegate.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::ByteStore;
using Testing::errorOf;
using Rows = std::vector<std::vector<double>>;

Scoped<TXTPointReader> readerOf(const std::string& text, const char* format, std::size_t skipLines = 0,
                                bool scanNow = false)
{
    Scoped<TXTPointReader> reader(TXTPointReader::create());
    reader->init(ByteStore::make(text).get(), format, skipLines, scanNow);
    return reader;
}

double valueOf(const ChannelData& channel, std::size_t index)
{
    double value = 0;
    visitDataType(channel.getDataType(), [&](auto zero) {
        value = static_cast<double>(static_cast<const decltype(zero)*>(channel.getData())[index]);
    });
    return value;
}

struct Query
{
    Bounds bounds = Bounds::Huge();
    double fraction = 1.0;
    std::size_t blockSize = 100;
    ProgressDelegate* delegate = nullptr;
};

Rows read(const TXTPointReader& reader, const PointInfo& layout, const Query& query = {})
{
    const Scoped<PointIterator> iterator(
        reader.createIterator(query.bounds, query.fraction, layout, query.delegate));
    PointData block;
    block.init(layout, query.blockSize);
    Rows rows;
    while (const std::size_t count = iterator->getNextPoints(block))
        for (std::size_t i = 0; i < count; ++i) {
            rows.emplace_back();
            for (std::size_t j = 0; j < block.getNumChannels(); ++j)
                rows.back().push_back(valueOf(block.getChannel(j), i));
        }
    return rows;
}

Rows read(const std::string& text, const char* format, std::size_t skipLines = 0)
{
    const auto reader = readerOf(text, format, skipLines);
    return read(*reader, reader->getPointInfo());
}

std::string readError(const std::string& text, const char* format, std::size_t skipLines = 0)
{
    return errorOf(40005, [&] { read(text, format, skipLines); });
}

PointInfo parsed(const char* format)
{
    PointInfo layout;
    TXTPointReader::parseFormat(format, layout);
    return layout;
}

TEST(TXTPointReader, SplitsFieldsAtWhiteSpaceAndCommas)
{
    const Rows expected = {{1, 2, 3}, {4, 5, 6}};
    for (const char* text :
         {"1 2 3\n4 5 6\n", "1, 2, 3\n4,5,6", "1\t2\t3\r\n4\t5\t6\r\n", " ,1 , 2,,3,\n\v4\f5 6",
          "1 2 3 99 x\n4 5 6 # 7\n", "# head\n\n1 2 3# note\n  \n#\n,\n4 5 6 "})
        EXPECT_EQ(read(text, "xyz"), expected) << text;
}

TEST(TXTPointReader, DropsSkippedColumnsAndLines)
{
    EXPECT_EQ(read("X Y Z\nmore\n1 abc 2 a#b 3 .\n", "xsyszs", 2), (Rows{{1, 2, 3}}));
    EXPECT_EQ(read("1 2 3\n", "xyz", 5), Rows());
    const auto reader = readerOf("", "xssyz");
    EXPECT_EQ(reader->getPointInfo().getNumChannels(), 3u);
}

TEST(TXTPointReader, ReadsIntegersLeniently)
{
    const auto intensityAndReturn = [](const std::string& text) {
        const Rows rows = read("1 2 3 " + text + "\n", "xyzir");
        return std::vector<double>(rows.at(0).begin() + 3, rows.at(0).end());
    };
    using Values = std::vector<double>;
    EXPECT_EQ(intensityAndReturn("65535 255"), (Values{65535, 255}));
    EXPECT_EQ(intensityAndReturn("65537 256"), (Values{1, 0})) << "wraps";
    EXPECT_EQ(intensityAndReturn("-1 +7"), (Values{65535, 7}));
    EXPECT_EQ(intensityAndReturn("- +"), (Values{0, 0})) << "a lone sign";
    EXPECT_EQ(intensityAndReturn("+-3"), (Values{0, 253})) << "a lone sign and -3";
    EXPECT_EQ(intensityAndReturn("99999999999999999999999999 1").at(1), 1) << "any length";
    // ".5" is not an integer, but the next field starts there after 12.
    EXPECT_EQ(readError("1 2 3 12.5 1\n", "xyzir"), "bad TXT file format");
    EXPECT_EQ(read("12.5 2 3\n", "iyxz").size(), 1u);
    EXPECT_EQ(read("12.5 2 3\n", "ixyz"), (Rows{{12, 0.5, 2, 3}}));
}

TEST(TXTPointReader, ReadsDecimalTextAsStrtodDoes)
{
    std::vector<std::string> texts = {"1.5",
                                      "+1.5",
                                      "-1.5",
                                      ".5",
                                      "5.",
                                      "-.5e+3",
                                      "1e400",
                                      "-1e400",
                                      "1e-400",
                                      "1e22",
                                      "4e-324",
                                      "2e-324",
                                      "inf",
                                      "-INF",
                                      "+infinity",
                                      "1e5x",
                                      "1e",
                                      "0.1e-",
                                      "1.7976931348623159e308",
                                      std::string(2000, '9'),
                                      "0." + std::string(2000, '0') + "1"};
    std::mt19937_64 random(7);
    for (int i = 0; i < 2000; ++i) {
        std::string text = std::to_string(random() >> random() % 64);
        text.insert(random() % text.size(), ".");
        texts.push_back(text + "e" + std::to_string(static_cast<int>(random() % 700) - 350));
    }
    for (const std::string& text : texts) {
        const double expected = std::strtod(text.c_str(), nullptr);
        const Rows rows = read("0 0 0 " + text + "\n", "xyzt");
        ASSERT_EQ(rows.size(), 1u) << text;
        EXPECT_EQ(rows[0][3], expected) << text;
    }
    EXPECT_TRUE(std::isnan(read("0 0 0 -nan", "xyzt").at(0)[3]));
}

// Reads a file like the programs.
Rows readFile(const TextOptions& options, const std::string& text)
{
    const Testing::TemporaryDirectory directory;
    const std::string path = directory.file("t.txt", text);
    const Scoped<TXTPointReader> reader(TXTPointReader::create());
    try {
        reader->init(path.c_str(), options);
        return read(*reader, reader->getPointInfo());
    } catch (const Error& error) {
        EXPECT_EQ(error.error(), 40005);
        EXPECT_EQ(std::string(error.what()).substr(0, path.size() + 1), path + ':');
        throw std::runtime_error(error.what() + path.size() + 1);
    }
}

TEST(TXTPointReader, RejectsInStrictModeWhatWouldChange)
{
    struct Case
    {
        const char* format;
        std::string text;
        const char* error; // null: no error
    };
    const std::string longest(LineReader::maxLength - 5, ' ');
    const Case cases[] = {
        {"xyzi", "1 2 3 70000", "2:7: 70000 does not fit Intensity (0 to 65535)"},
        {"xyzi", "# 7\n\n1 2 3 -5", "4:7: -5 does not fit Intensity (0 to 65535)"},
        {"xyzi", "1 2 3 12.5", "2:7: 12.5 is not an integer (Intensity)"},
        {"xyzi", "1 2 3 nan", "2:7: nan is not an integer (Intensity)"},
        {"xyzi", "1 2 3 +-3", "2:7: '+-3' is not a number (Intensity)"},
        {"xyzi", "1 2 3 7x", "2:7: '7x' is not a number (Intensity)"},
        {"xyzi", "1 2 3 -", "2:7: '-' is not a number (Intensity)"},
        {"xyzi", "1 2 3 99999999999999999999",
         "2:7: 99999999999999999999 does not fit Intensity (0 to 65535)"},
        {"xyzc", "1 2 3 256", "2:7: 256 does not fit ClassId (0 to 255)"},
        {"xyza", "1 2 3 -129", "2:7: -129 does not fit ScanAngle (-128 to 127)"},
        {"xyzas", "1 2 3 -128 a", nullptr},
        {"xyzca", "1 2 3 255 127", nullptr},
        {"xyzi", "1 2 3 12.0", nullptr},
        {"xyzi", "1 2 3 0065535", nullptr},
        {"x,y,z,a:uint64", "1 2 3 18446744073709551615", nullptr},
        {"x,y,z,a:uint64", "1 2 3 18446744073709551616",
         "2:7: 18446744073709551616 does not fit a (0 to 18446744073709551615)"},
        {"x,y,z,a:sint64", "1 2 3 -9223372036854775808", nullptr},
        {"x,y,z,a:sint64", "1 2 3 9223372036854775808",
         "2:7: 9223372036854775808 does not fit a (-9223372036854775808 to 9223372036854775807)"},
        {"x,y,z,a:float32", "1 2 3 1e39", "2:7: 1e39 does not fit a (FLOAT32)"},
        {"xyz", "1 2 1e400", "2:5: 1e400 does not fit Z (FLOAT64)"},
        {"xyz", "1 2 -inf", nullptr},
        {"xyz", "1 2 123456789012345678", "2:5: 123456789012345678 does not fit Z (FLOAT64)"},
        {"xyz", "1 2 123456789012345680", nullptr},
        {"xyz", "1 2 3x", "2:5: '3x' is not a number (Z)"},
        {"xyz", "1 2 " + std::string(50, 'x'),
         "2:5: 'xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...' is not a number (Z)"},
        {"xyz", "1,5 2,5 3,5", "2:7: 6 fields, expected 3"},
        {"xyz", "1 2 3 # 4\n1, 2 ,3,\n 1 2 3#4\n", nullptr},
        {"xyz", "1,2,,3", "2:5: a field is empty"},
        {"xyz", ",1,2,3", "2:1: a field is empty"},
        {"xyzrd", "1 2 3 15 1", nullptr},
        {"xyzr", "1 2 3 16", "2:7: 16 does not fit ReturnNum (0 to 15)"},
        {"xyzd", "1 2 3 2", "2:7: 2 does not fit ScanDir (0 to 1)"},
        {"xyz", "# X Y Z\n1 2 3\n# X Y Z\n1 2 3\n# remark\n", nullptr},
        {"xyz", "# X Y Z\n1 2 3\n# Y X Z\n", "4: the columns differ from those of the first header line"},
        {"xyz", "1 2 3\n1", "3:2: 1 field, expected 3"},
        {"xyz", std::string("1 2 3\0 4", 8), "2:6: line contains a NUL character"},
        {"xyz", longest + "1 2 3", nullptr},
        {"xyz", longest + "1 2 34", "2: line is longer than 1048576 bytes"},
    };
    for (const Case& test : cases) {
        TextOptions options;
        FieldFormat::parseColumns(test.format, options.layout);
        options.skipLines = 1;
        options.strict = true;
        for (const bool scanNow : {false, true}) {
            options.scanNow = scanNow; // finds errors in all columns
            std::string error;
            try {
                EXPECT_FALSE(readFile(options, "skipped\n" + test.text + '\n').empty());
            } catch (const std::runtime_error& what) {
                error = what.what();
            }
            EXPECT_EQ(error, test.error ? test.error : "") << test.format << ' ' << test.text.substr(0, 50);
        }
    }
}

TEST(TXTPointReader, RejectsTextThatIsNotANumber)
{
    for (const char* text : {"X Y Z\n", "1 2 z", "1 2 .", "1 2 -", "1 2 +-3", "1 2 e5", "1 2 --1"})
        EXPECT_EQ(readError(text, "xyz"), "bad TXT file format") << text;
}

TEST(TXTPointReader, NamesLineAndNumberOfFields)
{
    EXPECT_EQ(readError("1 2\n", "xyz"), "line 1 has 2 fields but was expecting at least 3.");
    EXPECT_EQ(readError("skip\nskip\n1 2 3\n\n# x\n1 #2 3\n", "xyz", 2),
              "line 4 has 1 fields but was expecting at least 3.");
    EXPECT_EQ(readError(std::string("1 2\0 3\n", 7), "xyz"),
              "line 1 has 2 fields but was expecting at least 3.")
        << "a NUL ends the line";
}

TEST(TXTPointReader, ReadsLinesLongerThanItsBuffers)
{
    const std::string blanks(10000, ' ');
    EXPECT_EQ(read(blanks + "1" + blanks + "2" + blanks + "3\n4 5 6\n", "xyz"), (Rows{{1, 2, 3}, {4, 5, 6}}));
}

TEST(TXTPointReader, SamplesThePointsOfTheBox)
{
    std::string text;
    for (int i = 0; i < 10; ++i)
        text += std::to_string(i) + " 0 0\n5 9 0\n";
    const auto reader = readerOf(text, "xyz");
    Query query;
    query.bounds = {{2, 7}, {0, 0}, {-1, 1}};
    for (const std::size_t blockSize : {1u, 2u, 100u}) {
        query.blockSize = blockSize;
        query.fraction = 1;
        EXPECT_EQ(read(*reader, parsed("xyz"), query).size(), 6u);
        query.fraction = 0.5;
        EXPECT_EQ(read(*reader, parsed("xyz"), query), (Rows{{2, 0, 0}, {4, 0, 0}, {6, 0, 0}}));
    }
    query.blockSize = 0;
    EXPECT_EQ(read(*reader, parsed("xyz"), query), Rows());
}

TEST(TXTPointReader, DeliversTheRequestedChannelsInOrder)
{
    const auto reader = readerOf("1 2 3 40000 -5 12.5\n", "xyziat");
    EXPECT_EQ(read(*reader, parsed("tzyx")), (Rows{{12.5, 3, 2, 1}}));
    EXPECT_EQ(read(*reader, parsed("zazyx")), (Rows{{3, -5, 3, 2, 1}})) << "requested twice";
    EXPECT_EQ(errorOf(-1, [&] { read(*reader, parsed("xyziatt")); }),
              "tring to extract more channels than fields");
    EXPECT_EQ(errorOf(40012, [&] { read(*reader, parsed("xyzR")); }), "requesting channel not in the source");
    EXPECT_EQ(errorOf(40007, [&] { read(*reader, parsed("xyi")); }), "must have x, y, and z channels");
    PointInfo layout = parsed("xyzi");
    layout.getChannel("Intensity")->init("Intensity", UINT8, 0, 0);
    EXPECT_EQ(errorOf(40010, [&] { read(*reader, layout); }), "");
}

TEST(TXTPointReader, ReadsEveryTypeOfALayout)
{
    PointInfo layout = parsed("xyz");
    const DataType types[] = {UINT8, SINT8, UINT16, SINT16, UINT32, SINT32, UINT64, SINT64, FLOAT32};
    for (const DataType type : types) {
        ChannelInfo channel;
        channel.init(DataTypeUtils::toString(type), type, 0, 0);
        layout.append(channel);
    }
    const Scoped<TXTPointReader> reader(TXTPointReader::create());
    reader->init(ByteStore::make("1 2 3 -1 -1 -1 -1 -1 -1 -1 -1 0.1\n").get(), layout, 0, true);
    EXPECT_EQ(read(*reader, layout), (Rows{{1, 2, 3, 255, -1, 65535, -1, 4294967295, -1,
                                            18446744073709551615.0, -1, static_cast<double>(0.1f)}}));

    ChannelInfo blank;
    blank.init("Blank", INVALID, 0, 0);
    layout.append(blank);
    reader->init(ByteStore::make().get(), layout, 0, false);
    EXPECT_EQ(errorOf(40011, [&] { read(*reader, layout); }), "");
}

TEST(TXTPointReader, ScansForCountAndBounds)
{
    const std::string text = "# x y z\n3 -1 5 8\n\n1 4 nan 8\n-2.5 7 6 8\n";
    const Bounds expected{{-2.5, 3}, {-1, 7}, {5, 6}};
    const auto scanned = readerOf(text, "xyzi", 0, true);
    EXPECT_EQ(scanned->getNumPoints(), 3) << "a point without a place counts";
    Query query;
    EXPECT_EQ(read(*scanned, parsed("xyz"), query).size(), 3u);
    query.bounds.z = {0, INFINITY};
    EXPECT_EQ(read(*scanned, parsed("xyz"), query).size(), 2u) << "but is in no box";
    EXPECT_EQ(scanned->getBounds(), expected);
    EXPECT_EQ(scanned->getTotalWork(Bounds::Huge(), 1), 5);
    EXPECT_EQ(scanned->getScale(), nullptr);

    const auto lazy = readerOf(text, "xyzi");
    EXPECT_EQ(lazy->getNumPoints(), PointSource::unknownNumPoints);
    EXPECT_EQ(lazy->getTotalWork(Bounds::Huge(), 1), 5);
    EXPECT_EQ(lazy->getBounds(), expected);
    EXPECT_EQ(lazy->getNumPoints(), 3);
}

TEST(TXTPointReader, IsUnchangedIfInitFails)
{
    const auto reader = readerOf("1 2 3\n", "xyz", 0, true);
    EXPECT_EQ(
        errorOf(40005, [&] { reader->init(ByteStore::make("1 2").get(), "xyz", 0, true); }).substr(0, 6),
        "line 1");
    EXPECT_EQ(errorOf(40007, [&] { reader->init(ByteStore::make().get(), "xy", 0, true); }),
              "must have x, y, and z channels");
    EXPECT_EQ(errorOf(40007, [&] { reader->init(static_cast<IO*>(nullptr), "xyz", 0, true); }), "io is NULL");
    EXPECT_EQ(errorOf(40007, [&] { reader->init(ByteStore::make().get(), "", 0, true); }),
              "format string not given");
    EXPECT_EQ(errorOf(ENOENT, [&] { reader->init("no/such/file.txt", "xyz", 0, false); }),
              "No such file or directory path = no/such/file.txt");
    EXPECT_EQ(reader->getNumPoints(), 1);
    EXPECT_EQ(read(*reader, reader->getPointInfo()), (Rows{{1, 2, 3}}));
}

struct Recorder : ProgressDelegate
{
    void reportProgress(double, const char* message) override
    {
        EXPECT_STREQ(message, "reading text file");
        completed.push_back(getProgress());
    }
    bool getCancelled() override { return cancelled; }

    std::vector<double> completed;
    bool cancelled = false;
};

TEST(TXTPointReader, ReportsEveryThousandLinesAndCanBeCancelled)
{
    std::string text;
    for (int i = 0; i < 2500; ++i)
        text += i % 2 == 0 ? "1 2 3\n" : "#\n";
    const auto reader = readerOf(text, "xyz");
    Recorder delegate;
    delegate.setTotal(1);
    Query query;
    query.blockSize = 10000;
    query.delegate = &delegate;
    read(*reader, parsed("xyz"), query);
    EXPECT_EQ(delegate.completed, (std::vector<double>{0, 1000, 2000, 2500, 2500, 2500}));

    delegate.cancelled = true;
    query.blockSize = 7; // fewer points than lines between two reports
    EXPECT_EQ(errorOf(40006, [&] { read(*reader, parsed("xyz"), query); }), "operation cancelled.");
}

std::string describe(const PointInfo& layout)
{
    std::string described;
    for (std::size_t i = 0; i < layout.getNumChannels(); ++i) {
        const ChannelInfo& channel = layout.getChannel(i);
        described += channel.getName() + std::string(" ") + DataTypeUtils::toString(channel.getDataType()) +
                     " " + std::to_string(channel.getBits()) + "; ";
        EXPECT_EQ(channel.getQuantization(), 0);
    }
    return described;
}

TEST(FieldFormat, KnowsEveryLetter)
{
    EXPECT_EQ(
        describe(parsed("xyzirndeacputTRGBs")),
        "X FLOAT64 32; Y FLOAT64 32; Z FLOAT64 32; Intensity UINT16 16; ReturnNum UINT8 3; "
        "NumReturns UINT8 3; ScanDir UINT8 1; EdgeFlightLine UINT8 1; ScanAngle SINT8 8; "
        "ClassId UINT8 8; SourceId UINT16 16; UserData UINT8 8; GPSTime FLOAT64 64; "
        "GPSTime_Adjusted FLOAT64 64; Red UINT16 16; Green UINT16 16; Blue UINT16 16; @Skip INVALID 0; ");
}

TEST(FieldFormat, ReadsListsOfNames)
{
    const std::pair<const char*, const char*> cases[] = {
        {"x, Y,z,returnnum,ScanAngle",
         "X FLOAT64 32; Y FLOAT64 32; Z FLOAT64 32; ReturnNum UINT8 3; ScanAngle SINT8 8; "},
        {"ReturnNum,ScanAngle,ClassFlags", "ReturnNum UINT8 4; ScanAngle SINT16 16; ClassFlags UINT8 4; "},
        {"a:b:float32,intensity:UINT8,@skip,s,t,NearInfrared,n,ScanAngle:SINT8",
         "a:b FLOAT32 32; Intensity UINT8 8; @Skip INVALID 0; @Skip INVALID 0; GPSTime FLOAT64 64; "
         "NearInfrared "
         "UINT16 16; NumReturns UINT8 4; ScanAngle SINT8 8; "},
    };
    PointInfo layout;
    for (const auto& [text, expected] : cases) {
        FieldFormat::parseColumns(text, layout);
        EXPECT_EQ(describe(layout), expected) << text;
    }
    const std::pair<const char*, const char*> errors[] = {
        {"X,Amplitude", "'Amplitude' is not a standard channel; add its type, as in 'Amplitude:FLOAT64'"},
        {"X,a:FLOAT", "'FLOAT' is not a data type"},
        {"X,,Y", "a name is missing in 'X,,Y'"},
        {"X,q", "'q' is not a supported format token"},
        {"Intensity", "'I' is not a supported format token"},
    };
    for (const auto& [text, expected] : errors)
        EXPECT_EQ(errorOf(40007, [&, text = text] { FieldFormat::parseColumns(text, layout); }), expected);

    const PointInfo known = parsed("xyzi");
    FieldFormat::parseColumns("intensity,X", layout, known);
    EXPECT_EQ(describe(layout), "Intensity UINT16 16; X FLOAT64 32; ");
    EXPECT_EQ(errorOf(40007, [&] { FieldFormat::parseColumns("X,Red", layout, known); }),
              "the input does not have channel: 'Red', its channels are X, Y, Z, Intensity");
    FieldFormat::parseColumns("x,y,z,Classification,return_number,NIR", layout);
    EXPECT_EQ(describe(layout),
              "X FLOAT64 32; Y FLOAT64 32; Z FLOAT64 32; ClassId UINT8 8; ReturnNum UINT8 4; "
              "NearInfrared UINT16 16; ");
}

TEST(FieldFormat, ReadsHeaderLines)
{
    const std::pair<const char*, const char*> cases[] = {
        {"# X Y Z ScanAngle Amplitude x X", "X FLOAT64 32; Y FLOAT64 32; Z FLOAT64 32; ScanAngle SINT8 8; "
                                            "Amplitude FLOAT64 64; x FLOAT64 64; @Skip INVALID 0; "},
        {"#ScannerChannel  X Y Z ScanAngle\r",
         "ScannerChannel UINT8 2; X FLOAT64 32; Y FLOAT64 32; Z FLOAT64 32; ScanAngle SINT16 16; "},
        {"", ""},
        {"X Y Z", ""},
        {"# points of X and Y", ""},
    };
    for (const auto& [line, expected] : cases) {
        PointInfo layout;
        EXPECT_EQ(FieldFormat::parseHeader(line, layout), *expected != '\0') << line;
        EXPECT_EQ(describe(layout), expected) << line;
    }
}

TEST(FieldFormat, CopiesChannelsOfAKnownLayout)
{
    PointInfo known = parsed("xyzi");
    known.getChannel("X")->setQuantization(0.25);
    known.getChannel("Intensity")->init("Intensity", UINT8, 5, 0);
    PointInfo layout;
    TXTPointReader::parseFormat("ixx", layout, known);
    ASSERT_EQ(layout.getNumChannels(), 3u);
    EXPECT_TRUE(*layout.getChannel("Intensity") == *known.getChannel("Intensity"));
    EXPECT_TRUE(layout.getChannel(2) == *known.getChannel("X"));

    const auto parseError = [&](const char* format) {
        return errorOf(40007, [&] { TXTPointReader::parseFormat(format, layout, known); });
    };
    EXPECT_EQ(parseError("xt"), "'GPSTime' is not in the input channel mapping");
    EXPECT_EQ(parseError("xs"), "'@Skip' is not in the input channel mapping");
    EXPECT_EQ(parseError("tX"), "'X' is not a supported format token") << "letters are looked at first";
    EXPECT_EQ(parseError(nullptr), "format string not given");
    EXPECT_EQ(layout.getNumChannels(), 3u) << "an error changes nothing";
}

TEST(FieldFormat, ParsesQuantizations)
{
    PointInfo layout = parsed("xyzti");
    TXTPointReader::parseQuantization("xy@0.01,z@+1e-3m,tT@0.5", layout);
    const double expected[] = {0.01, 0.01, 0.001, 0.5, 0};
    for (std::size_t i = 0; i < std::size(expected); ++i)
        EXPECT_EQ(layout.getChannel(i).getQuantization(), expected[i]) << "i=" << i;
    EXPECT_EQ(layout.getChannel("X")->getBits(), 32);

    const auto parseError = [&](const char* text) {
        return errorOf(40007, [&] { TXTPointReader::parseQuantization(text, layout); });
    };
    EXPECT_EQ(parseError("x@1,yz"), "the quantization value is missing for 'yz'");
    EXPECT_EQ(parseError("x@1,"), "the quantization value is missing for ''");
    EXPECT_EQ(parseError("x@"), "could not parse quantization for 'x@'");
    EXPECT_EQ(parseError("x@,y@1"), "could not parse quantization for 'x@'");
    EXPECT_EQ(parseError("x@0.0"), "quantization for 'x@0.0' can not be zero");
    EXPECT_EQ(parseError("xi@1"), "'i' is not a supported format token");
    EXPECT_EQ(layout.getChannel("X")->getQuantization(), 0.01) << "an error changes nothing";
}

} // namespace
} // namespace Quillmoran
