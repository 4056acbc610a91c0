#include <vxunpack/TXTPointReader.h>

#include "support/Test.h"
#include "text/FieldFormat.h"
#include "text/LineReader.h"

#include <random>

namespace Quillmoran::Testing { namespace {

using Rows = std::vector<std::vector<double>>;

Scoped<TXTPointReader> readerOf(const std::string& text, const char* format, std::size_t skipLines = 0,
                                bool scanNow = false)
{
    Scoped<TXTPointReader> reader(TXTPointReader::create());
    reader->init(ByteStore::make(text).get(), format, skipLines, scanNow);
    return reader;
}

Rows read(const TXTPointReader& reader, const PointInfo& layout, const Bounds& bounds = Bounds::Huge(),
          double fraction = 1, std::size_t blockSize = 100, ProgressDelegate* delegate = nullptr)
{
    const Scoped<PointIterator> iterator(reader.createIterator(bounds, fraction, layout, delegate));
    PointData block;
    block.init(layout, blockSize);
    Rows rows;
    while (const std::size_t count = iterator->getNextPoints(block)) {
        const std::size_t first = rows.size();
        rows.resize(first + count);
        for (std::size_t j = 0; j < block.getNumChannels(); ++j)
            visitDataType(block.getChannel(j).getDataType(), [&](auto zero) {
                const auto* samples = static_cast<const decltype(zero)*>(block.getChannel(j).getData());
                for (std::size_t i = 0; i < count; ++i)
                    rows[first + i].push_back(static_cast<double>(samples[i]));
            });
    }
    return rows;
}

Rows read(const std::string& text, const char* format, std::size_t skipLines = 0)
{
    const auto reader = readerOf(text, format, skipLines);
    return read(*reader, reader->getPointInfo());
}

PointInfo parsed(const char* format)
{
    PointInfo layout;
    TXTPointReader::parseFormat(format, layout);
    return layout;
}

TEST(TXTPointReader, ReadsTablesLeniently)
{
    const Rows two = {{1, 2, 3}, {4, 5, 6}};
    const struct
    {
        const char *format, *text;
        Rows rows;
        std::size_t skipLines = 0;
    } cases[] = {
        {"xyz", "1 2 3\n4 5 6\n", two},
        {"xyz", "1, 2, 3\n4,5,6", two},
        {"xyz", "1\t2\t3\r\n4\t5\t6\r\n", two},
        {"xyz", " ,1 , 2,,3,\n\v4\f5 6", two},
        {"xyz", "1 2 3 99 x\n4 5 6 # 7\n", two},
        {"xyz", "# head\n\n1 2 3# note\n  \n#\n,\n4 5 6 ", two},
        {"xyz", "\xEF\xBB\xBF\x31 2 3\n4 5 6", two},
        {"xsyszs", "X Y Z\nmore\n1 abc 2 a#b 3 .\n", {{1, 2, 3}}, 2},
        {"xyz", "1 2 3\n", {}, 5},
        {"xyzir", "1 2 3 65535 255", {{1, 2, 3, 65535, 255}}},
        {"xyzir", "1 2 3 65537 256", {{1, 2, 3, 1, 0}}}, // wraps
        {"xyzir", "1 2 3 -1 +7", {{1, 2, 3, 65535, 7}}},
        {"xyzir", "1 2 3 - +", {{1, 2, 3, 0, 0}}},   // a lone sign
        {"xyzir", "1 2 3 +-3", {{1, 2, 3, 0, 253}}}, // a lone sign and -3
        {"xyzr", "1 2 3 00000000000000000000000001", {{1, 2, 3, 1}}},
        {"ixyz", "12.5 2 3\n", {{12, 0.5, 2, 3}}}, // ".5" is not an integer, so it is the next field
        {"iyxz", "12.5 2 3\n", {{12, 0.5, 2, 3}}},
    };
    for (const auto& [format, text, rows, skipLines] : cases)
        EXPECT_EQ(read(text, format, skipLines), rows) << format << ": " << text;
    EXPECT_EQ(readerOf("", "xssyz")->getPointInfo().getNumChannels(), 3u);
}

TEST(TXTPointReader, RejectsTextThatIsNotANumberAndShortLines)
{
    for (const char* text : {"X Y Z\n", "1 2 z", "1 2 .", "1 2 -", "1 2 +-3", "1 2 e5", "1 2 --1",
                             "1 2 3 12.5 1", "1 2 3 4 5\n\xEF\xBB\xBF\x31 2 3"})
        EXPECT_EQ(errorOf(40005, [&] { read(text, "xyzir"); }), "bad TXT file format") << text;
    const std::tuple<std::string, std::size_t, std::string> cases[] = {
        {"1 2\n", 0, "line 1 has 2"},
        {std::string("1 2\0 3\n", 7), 0, "line 1 has 2"}, // a NUL ends the line
        {"skip\nskip\n1 2 3\n\n# x\n1 #2 3\n", 2, "line 4 has 1"}};
    for (const auto& [text, skipLines, fields] : cases)
        EXPECT_EQ(errorOf(40005, [&, &text = text, skip = skipLines] { read(text, "xyz", skip); }),
                  fields + " fields but was expecting at least 3.");
}

TEST(TXTPointReader, ReadsDecimalTextAsStrtodDoes)
{
    std::stringstream texts;
    texts << "1.5 +1.5 -1.5 .5 5. -.5e+3 1e400 -1e400 1e-400 1e22 4e-324 2e-324 inf -INF +infinity 1e5x 1e "
             "0.1e- "
             "1.7976931348623159e308 "
          << std::string(2000, '9') << " 0." << std::string(2000, '0') << '1';
    std::mt19937_64 random(7);
    for (int i = 0; i < 2000; ++i) {
        std::string text = std::to_string(random() >> random() % 64);
        text.insert(random() % text.size(), ".");
        texts << ' ' << text << 'e' << static_cast<int>(random() % 700) - 350;
    }
    for (std::string text; texts >> text;) {
        const Rows rows = read("0 0 0 " + text + "\n", "xyzt");
        ASSERT_EQ(rows.size(), 1u) << text;
        EXPECT_EQ(rows[0][3], std::strtod(text.c_str(), nullptr)) << text;
    }
    EXPECT_TRUE(std::isnan(read("0 0 0 -nan", "xyzt").at(0)[3]));
}

// Errors are located after the name of the file, as in ":2:7: ".
std::string strictError(const std::string& format, const std::string& text)
{
    const TemporaryDirectory directory;
    const std::string path = directory.file("t.txt", "skipped\n" + text + '\n');
    TextOptions options;
    FieldFormat::parseColumns(format.c_str(), options.layout);
    options.skipLines = 1;
    options.strict = true;
    std::string errors[2];
    for (const bool scanNow : {false, true}) {
        options.scanNow = scanNow; // finds errors in all columns
        const Scoped<TXTPointReader> reader(TXTPointReader::create());
        errors[scanNow] = errorOf(40005, [&] {
            reader->init(path.c_str(), options);
            EXPECT_FALSE(!scanNow && read(*reader, reader->getPointInfo()).empty());
        });
    }
    EXPECT_EQ(errors[0], errors[1]);
    return errors[0].rfind(path, 0) == 0 ? errors[0].substr(path.size()) : errors[0];
}

TEST(TXTPointReader, ReadsInStrictModeTheRangeOfEachChannel)
{
    std::istringstream ranges(
        "i Intensity 0 65535  c ClassId 0 255  a ScanAngle -128 127  r ReturnNum 0 15  n NumReturns 0 15  "
        "d ScanDir 0 1  e EdgeFlightLine 0 1  ClassFlags ClassFlags 0 15  ScannerChannel ScannerChannel 0 3  "
        "ReturnNum:UINT16 ReturnNum 0 65535  w:SINT32 w -2147483648 2147483647");
    std::string column, name;
    for (std::int64_t low, high; ranges >> column >> name >> low >> high;) {
        const std::string lowest = std::to_string(low), highest = std::to_string(high);
        for (const std::string& text :
             {lowest, highest, highest + ".0", "+0000000000000000000" + highest + '#'})
            EXPECT_EQ(strictError("x,y,z," + column, "1 2 3 " + text), "nothing thrown") << text;
        const std::string above = std::to_string(high + 1), range = " (" + lowest + " to " + highest + ')';
        EXPECT_EQ(strictError("x,y,z," + column, "1 2 3 " + above),
                  ":2:7: " + above + " does not fit " + name + range);
        for (const std::string& text : {std::to_string(low - 1), std::string("99999999999999999999")})
            EXPECT_EQ(strictError("x,y,z," + column, "1 2 3 " + text).find(text + " does not fit " + name),
                      6u);
    }
}

TEST(TXTPointReader, RejectsInStrictModeWhatWouldChange)
{
    const std::string longest(LineReader::maxLength - 5, ' '), forty(40, 'x'),
        big = " does not fit a (", tail = " does not fit Z (FLOAT64)";
    const std::string accepted = "nothing thrown";
    const std::tuple<const char*, std::string, std::string> cases[] = {
        {"x,y,z,a:uint64",
         "1 2 3 18446744073709551615\n1 2 3 +018446744073709551615\n1 2 3 9007199254740991.0", accepted},
        {"x,y,z,a:sint64,b:float32", "1 2 3 -9223372036854775808 9007199254740993", accepted}, // not exact
        {"xyz", "1 2 -inf\n1 9007199254740992 123456789012345680\n1 2 3 # 4\n1, 2 ,3,\n 1 2 3#4\n", accepted},
        {"xyzs", "# X Y Z\n1 2 3 a\n# X Y Z\n1 2 3 b\n# remark\n", accepted},
        {"xyz", longest + "1 2 3", accepted},
        {"xyzi", "# 7\n\n1 2 3 -5", ":4:7: -5 does not fit Intensity (0 to 65535)"},
        {"xyzi", "1 2 3 12.5", ":2:7: 12.5 is not an integer (Intensity)"},
        {"xyzi", "1 2 3 nan", ":2:7: nan is not an integer (Intensity)"},
        {"xyzi", "1 2 3 +-3#", ":2:7: '+-3' is not a number (Intensity)"},
        {"xyzi", "1 2 3 -", ":2:7: '-' is not a number (Intensity)"},
        {"x,y,z,a:uint64", "1 2 3 9007199254740993.0",
         ":2:7: 9007199254740993.0" + big + "0 to 18446744073709551615)"},
        {"x,y,z,a:uint64", "1 2 3 18446744073709551616",
         ":2:7: 18446744073709551616" + big + "0 to 18446744073709551615)"},
        {"x,y,z,a:sint64", "1 2 3 9223372036854775808",
         ":2:7: 9223372036854775808" + big + "-9223372036854775808 to 9223372036854775807)"},
        {"x,y,z,a:float32", "1 2 3 1e39", ":2:7: 1e39" + big + "FLOAT32)"},
        {"xyz", "1 2 1e400", ":2:5: 1e400" + tail},
        {"xyz", "1 2 -.9e999", ":2:5: -.9e999" + tail},
        {"xyz", "1 2 -9007199254740993", ":2:5: -9007199254740993" + tail},
        {"xyz", "1 2 18446744073709551615", ":2:5: 18446744073709551615" + tail},
        {"xyz", "1 2 3x", ":2:5: '3x' is not a number (Z)"},
        {"xyz", "1 2 " + forty, ":2:5: '" + forty + "' is not a number (Z)"},
        {"xyz", "1 2 x" + forty, ":2:5: '" + forty + "...' is not a number (Z)"},
        {"xyz", "1,5 2,5 3,5", ":2:7: 6 fields, expected 3"},
        {"xyz", "1 2 3\n1", ":3:2: 1 field, expected 3"},
        {"xyz", "1,2,,3", ":2:5: a field is empty"},
        {"xyz", ",1,2,3", ":2:1: a field is empty"},
        {"xyz", "# X Y Z\n1 2 3\n# Y X Z\n", ":4: the columns differ from those of the first header line"},
        {"xyz", std::string("1 2 3\0 4", 8), ":2:6: line contains a NUL character"},
        {"xyz", longest + "1 2 34", ":2: line is longer than 1048576 bytes"},
    };
    for (const auto& [format, text, error] : cases)
        EXPECT_EQ(strictError(format, text), error) << format << ' ' << text.substr(0, 50);
}

TEST(TXTPointReader, ReadsLinesOfTheSizesOfItsBuffers)
{
    for (const std::size_t power : {std::size_t{4096}, std::size_t{32768}, std::size_t{65536},
                                    std::size_t{131072}, LineReader::maxLength - 2})
        for (std::size_t length = power - 2; length <= power + 2; ++length) {
            const std::string line = "1 2 " + std::string(length - 5, ' ') + '3';
            EXPECT_EQ(read(line + "\n" + line + "\n4 5 6\n" + line, "xyz"),
                      (Rows{{1, 2, 3}, {1, 2, 3}, {4, 5, 6}, {1, 2, 3}}))
                << length;
        }
}

TEST(TXTPointReader, EstimatesLinesByTheFirst4096Bytes)
{
    std::string tens, grows(4086, '#');
    for (int i = 0; i < 1000; ++i)
        tens += "1 2 34567\n";
    const std::pair<std::string, double> cases[] = {{"", 0},
                                                    {"1 2 3", 1},
                                                    {"1 2 3\n4 5 6\n", 2},
                                                    {std::string(5000, ' ') + "1 2 3\n", 5006 / 4096.0},
                                                    {tens, 409 * (10000 / 4096.0)},
                                                    {grows + "\n1 2 3\n4\n\n\n", 4 * (4097 / 4096.0)}};
    for (const auto& [text, lines] : cases)
        EXPECT_EQ(readerOf(text, "xyz")->getTotalWork(Bounds::Huge(), 1), lines) << text.size();
}

TEST(TXTPointReader, SamplesThePointsOfTheBox)
{
    std::string text;
    for (int i = 0; i < 10; ++i)
        text += std::to_string(i) + " 0 0\n5 9 0\n";
    const auto reader = readerOf(text, "xyz");
    const Bounds box{{2, 7}, {0, 0}, {-1, 1}};
    for (const std::size_t blockSize : {1u, 2u, 100u}) {
        EXPECT_EQ(read(*reader, parsed("xyz"), box, 1, blockSize).size(), 6u);
        EXPECT_EQ(read(*reader, parsed("xyz"), box, 0.5, blockSize), (Rows{{2, 0, 0}, {4, 0, 0}, {6, 0, 0}}));
    }
    EXPECT_EQ(read(*reader, parsed("xyz"), box, 1, 0), Rows());
}

TEST(TXTPointReader, DeliversTheRequestedChannelsInOrder)
{
    const auto reader = readerOf("1 2 3 40000 -5 12.5\n4 5 6 7 8 9\n", "xyziat");
    EXPECT_EQ(read(*reader, parsed("tzyx")), (Rows{{12.5, 3, 2, 1}, {9, 6, 5, 4}}));
    EXPECT_EQ(read(*reader, parsed("zazyx")), (Rows{{3, -5, 3, 2, 1}, {6, 8, 6, 5, 4}})) << "requested twice";
    EXPECT_EQ(errorOf(-1, [&] { read(*reader, parsed("xyziatt")); }),
              "tring to extract more channels than fields");
    EXPECT_EQ(errorOf(40012, [&] { read(*reader, parsed("xyzR")); }), "requesting channel not in the source");
    EXPECT_EQ(errorOf(40007, [&] { read(*reader, parsed("xyi")); }), "must have x, y, and z channels");
    EXPECT_EQ(errorOf(40010, [&] { read(*reader, layoutXYZ({channel("Intensity", UINT8)})); }), "");
}

TEST(TXTPointReader, ReadsEveryTypeOfALayout)
{
    PointInfo layout = parsed("xyz");
    for (const DataType type : {UINT8, SINT8, UINT16, SINT16, UINT32, SINT32, UINT64, SINT64, FLOAT32})
        layout.append(channel(DataTypeUtils::toString(type), type));
    const Scoped<TXTPointReader> reader(TXTPointReader::create());
    reader->init(ByteStore::make("1 2 3 -1 -1 -1 -1 -1 -1 -1 -1 0.1\n").get(), layout, 0, true);
    EXPECT_EQ(read(*reader, layout), (Rows{{1, 2, 3, 255, -1, 65535, -1, 4294967295, -1,
                                            18446744073709551615.0, -1, static_cast<double>(0.1f)}}));
    layout.append(channel("Blank", INVALID));
    reader->init(ByteStore::make().get(), layout, 0, false);
    EXPECT_EQ(errorOf(40011, [&] { read(*reader, layout); }), "");
}

TEST(TXTPointReader, ScansForCountAndBounds)
{
    const std::string text = "# x y z\n3 -1 5 8\n\n1 4 nan 8\n-2.5 7 6 8\n";
    const Bounds expected{{-2.5, 3}, {-1, 7}, {5, 6}};
    for (const bool scanNow : {true, false}) {
        const auto reader = readerOf(text, "xyzi", 0, scanNow);
        EXPECT_EQ(reader->estimatePoints(Bounds::Huge(), 0.5), scanNow ? 1.5 : 2.5);
        EXPECT_EQ(reader->getNumPoints(), scanNow ? 3 : PointSource::unknownNumPoints);
        EXPECT_EQ(reader->getTotalWork(Bounds::Huge(), 1), 5);
        EXPECT_EQ(reader->getScale(), nullptr);
        EXPECT_EQ(reader->getBounds(), expected);
        EXPECT_EQ(reader->getNumPoints(), 3) << "a point without a place counts";
        EXPECT_EQ(read(*reader, parsed("xyz")).size(), 3u);
        const Bounds half{Bounds::Huge().x, Bounds::Huge().y, {0, INFINITY}};
        EXPECT_EQ(read(*reader, parsed("xyz"), half).size(), 2u) << "but is in no box";
    }
    ProgressLog log(0);
    TextOptions options;
    options.layout = parsed("xyz");
    options.cancellation = &log;
    const TemporaryDirectory directory;
    const Scoped<TXTPointReader> reader(TXTPointReader::create());
    reader->init(directory.file("a.txt", text).c_str(), options);
    EXPECT_EQ(errorOf(40006, [&] { reader->getBounds(); }), "operation cancelled.");
}

TEST(TXTPointReader, IsUnchangedIfInitFails)
{
    const auto reader = readerOf("1 2 3\n", "xyz", 0, true);
    for (const auto& [format, error] :
         {std::pair{"xyz", "40005 line 1"}, {"xy", "40007 must have x,"}, {"", "40007 format str"}})
        EXPECT_EQ(failureOf([&, format = format] {
                      reader->init(ByteStore::make("1 2").get(), format, 0, true);
                  }).find(error),
                  0u);
    EXPECT_EQ(failureOf([&] { reader->init("no/such/file.txt", "xyz", 0, false); }),
              "2 No such file or directory path = no/such/file.txt");
    reader->overrideWKT("here");
    EXPECT_EQ(reader->getNumPoints(), 1);
    EXPECT_EQ(read(*reader, reader->getPointInfo()), (Rows{{1, 2, 3}}));
    reader->init(ByteStore::make().get(), "xyz", 0, true);
    EXPECT_EQ(reader->getWKT(), nullptr) << "of the file before";
}

TEST(TXTPointReader, ReportsEveryThousandLinesAndCanBeCancelled)
{
    std::string text;
    for (int i = 0; i < 2500; ++i)
        text += i % 2 == 0 ? "1 2 3\n" : "#\n";
    const auto reader = readerOf(text, "xyz");
    ProgressLog log;
    log.setTotal(1);
    read(*reader, parsed("xyz"), Bounds::Huge(), 1, 10000, &log);
    EXPECT_EQ(log.fractions, (Numbers{0, 1000, 2000, 2500, 2500, 2500}));
    EXPECT_EQ(log.activities, Strings{"reading text file"});

    // Asked before the buffer is filled and after each thousand lines, here with fewer points between them.
    for (const int queries : {0, 1, 2, 100}) {
        ProgressLog cancelling(queries);
        cancelling.setTotal(1);
        EXPECT_EQ(failureOf([&] { read(*reader, parsed("xyz"), Bounds::Huge(), 1, 7, &cancelling); }),
                  queries < 100 ? "40006 operation cancelled." : "no error");
        EXPECT_NEAR(cancelling.last(), std::min(1000 * queries, 2500), 14) << queries;
    }
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

void expectErrors(const std::function<void(const char*)>& parse,
                  const std::vector<std::pair<const char*, const char*>>& cases)
{
    for (const auto& [text, error] : cases)
        EXPECT_EQ(errorOf(40007, [&, text = text] { parse(text); }), error);
}

const std::string x = "X FLOAT64 32; ", xyz = x + "Y FLOAT64 32; Z FLOAT64 32; ";

TEST(FieldFormat, ReadsLettersAndListsOfNames)
{
    const std::pair<const char*, std::string> cases[] = {
        {"xyzirndeacputTRGBs",
         xyz + "Intensity UINT16 16; ReturnNum UINT8 3; NumReturns UINT8 3; ScanDir UINT8 1; "
               "EdgeFlightLine UINT8 1; ScanAngle SINT8 8; ClassId UINT8 8; SourceId UINT16 16; UserData "
               "UINT8 8; "
               "GPSTime FLOAT64 64; GPSTime_Adjusted FLOAT64 64; Red UINT16 16; Green UINT16 16; Blue UINT16 "
               "16; "
               "@Skip INVALID 0; "},
        {"x, Y,z,returnnum,ScanAngle", xyz + "ReturnNum UINT8 3; ScanAngle SINT8 8; "},
        {"ReturnNum,ScanAngle,ClassFlags", "ReturnNum UINT8 4; ScanAngle SINT16 16; ClassFlags UINT8 4; "},
        {"n,ScannerChannel", "NumReturns UINT8 4; ScannerChannel UINT8 2; "},
        {"a:b:float32,intensity:UINT8,@skip,s,t,NearInfrared,r,ScanAngle:SINT8",
         "a:b FLOAT32 32; Intensity UINT8 8; @Skip INVALID 0; @Skip INVALID 0; GPSTime FLOAT64 64; "
         "NearInfrared UINT16 16; ReturnNum UINT8 4; ScanAngle SINT8 8; "},
        {"x,Classification,return_number,NIR",
         x + "ClassId UINT8 8; ReturnNum UINT8 4; NearInfrared UINT16 16; "},
    };
    PointInfo layout;
    for (const auto& [text, expected] : cases) {
        FieldFormat::parseColumns(text, layout);
        EXPECT_EQ(describe(layout), expected) << text;
    }
    const PointInfo known = parsed("xyzi");
    FieldFormat::parseColumns("intensity,X", layout, known);
    EXPECT_EQ(describe(layout), "Intensity UINT16 16; " + x);

    expectErrors(
        [&](const char* text) { FieldFormat::parseColumns(text, layout); },
        {{"X,Amplitude", "'Amplitude' is not a standard channel; add its type, as in 'Amplitude:FLOAT64'"},
         {"X,:FLOAT32", "':FLOAT32' is not a standard channel; add its type, as in ':FLOAT32:FLOAT64'"},
         {"X,a:FLOAT", "'FLOAT' is not a data type"},
         {"X,,Y", "a name is missing in 'X,,Y'"},
         {"X,q", "'q' is not a supported format token"},
         {"Intensity", "'I' is not a supported format token"}});
    expectErrors([&](const char* text) { FieldFormat::parseColumns(text, layout, known); },
                 {{"X,Red", "the input does not have channel: 'Red', its channels are X, Y, Z, Intensity"}});
    EXPECT_EQ(layout.getNumChannels(), 2u) << "an error changes nothing";
}

TEST(FieldFormat, ReadsHeaderLines)
{
    const std::pair<const char*, std::string> cases[] = {
        {"# X Y Z ScanAngle Amplitude x X",
         xyz + "ScanAngle SINT8 8; Amplitude FLOAT64 64; x FLOAT64 64; @Skip INVALID 0; "},
        {"#ScannerChannel  X Y Z ScanAngle\r", "ScannerChannel UINT8 2; " + xyz + "ScanAngle SINT16 16; "},
        {"", ""},
        {"X Y Z", ""},
        {"# points of X and Y", ""},
    };
    for (const auto& [line, expected] : cases) {
        PointInfo layout;
        EXPECT_EQ(FieldFormat::parseHeader(line, layout), !expected.empty()) << line;
        EXPECT_EQ(describe(layout), expected) << line;
    }
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.txt", "first\n# X Y Z Red\n1 2 3 4\n");
    EXPECT_FALSE(TXTPointReader::readHeader(path.c_str(), 0) || TXTPointReader::readHeader(path.c_str(), 3));
    EXPECT_EQ(TXTPointReader::readHeader(path.c_str(), 1)->getNumChannels(), 4u);
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
    expectErrors([&](const char* text) { TXTPointReader::parseFormat(text, layout, known); },
                 {{"xt", "'GPSTime' is not in the input channel mapping"},
                  {"xs", "'@Skip' is not in the input channel mapping"},
                  {"tX", "'X' is not a supported format token"}, // letters are looked at first
                  {nullptr, "format string not given"}});
    EXPECT_EQ(layout.getNumChannels(), 3u) << "an error changes nothing";
}

TEST(FieldFormat, ParsesQuantizations)
{
    PointInfo layout = parsed("xyzTi");
    TXTPointReader::parseQuantization("xy@0.01,z@+1e-3m,tT@-0.5", layout);
    for (const auto& [name, step] :
         {std::pair{"X", 0.01}, {"Y", 0.01}, {"Z", 0.001}, {"GPSTime_Adjusted", -0.5}, {"Intensity", 0.}})
        EXPECT_EQ(layout.getChannel(name)->getQuantization(), step) << name;
    expectErrors([&](const char* text) { TXTPointReader::parseQuantization(text, layout); },
                 {{"x@1,yz", "the quantization value is missing for 'yz'"},
                  {"x@1,", "the quantization value is missing for ''"},
                  {"x@,y@1", "could not parse quantization for 'x@'"},
                  {"x@0.0", "quantization for 'x@0.0' can not be zero"},
                  {"xi@1", "'i' is not a supported format token"},
                  {nullptr, "quantizations not given"}});
    EXPECT_EQ(layout.getChannel("X")->getQuantization(), 0.01) << "an error changes nothing";
}

}} // namespace Quillmoran::Testing
