#include <vxunpack/FilePointSourceManager.h>

#include "support/Errors.h"
#include "support/ExampleSurvey.h"
#include "support/TemporaryDirectory.h"
#include "utils/sets/Formats.h"
#include <vxunpack/TXTPointReader.h>

#include <algorithm>
#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

using Testing::errorOf;
using Testing::TemporaryDirectory;
using Testing::writeFile;

TEST(SimpleFileOpener, ClassifiesNamesByTheirEnding)
{
    const std::pair<const char*, PointSourceType> cases[] = {
        {"a.vxl", POINT_SOURCE_VX7},    {"dir.las/A.VXL", POINT_SOURCE_VX7}, {"a.LAS", POINT_SOURCE_LAS},
        {"null.las", POINT_SOURCE_LAS}, {"a.Laz", POINT_SOURCE_LAZ},         {"a.bpf", POINT_SOURCE_BPF},
        {"a.list", POINT_SOURCE_LIST},  {"a.index", POINT_SOURCE_INDEX},     {"NULL", POINT_SOURCE_NULL},
        {"./null", POINT_SOURCE_TEXT},  {"a.txt", POINT_SOURCE_TEXT},        {"", POINT_SOURCE_TEXT},
        {"vxl", POINT_SOURCE_TEXT},     {".vxl", POINT_SOURCE_VX7},          {"a.vxl.gz", POINT_SOURCE_TEXT},
    };
    for (const auto& [name, type] : cases)
        EXPECT_EQ(SimpleFileOpener::getPointSourceType(name), type) << name;
    EXPECT_STREQ(SimpleFileOpener::getPointSourceTypeName(POINT_SOURCE_VX7), "Vexil LiDAR File");
    EXPECT_STREQ(SimpleFileOpener::getPointSourceTypeName(POINT_SOURCE_NULL), "Unknown File Type");
    EXPECT_STREQ(SimpleFileOpener::getPointSourceTypeName(static_cast<PointSourceType>(99)),
                 "Unknown File Type");
}

TEST(Formats, AreListedInTheManPages)
{
    const auto expectListed = [](const std::string& program, const std::string& name) {
        std::string text = Testing::readFile(EXAMPLES "/../docs/man/" + program + ".1");
        std::replace(text.begin(), text.end(), '\n', ' ');
        EXPECT_NE(text.find(' ' + name + ' '), std::string::npos) << program << ' ' << name;
    };
    for (const Format& format : Formats::table) {
        if (format.isSelfDescribing)
            for (const char* program : {"vxpack", "vxindex"})
                expectListed(program, format.pattern);
        if (format.createWriter && *format.pattern)
            expectListed("vxunpack", format.pattern);
        for (const char* name : format.outputNames)
            if (name)
                expectListed("vxunpack", name);
    }
}

TEST(FilePointSourceManager, ReadsListsRelativeToThemselves)
{
    const TemporaryDirectory directory;
    std::filesystem::create_directory(directory / "sub");
    writeFile(directory / "sub/inner.list", std::string("  b.vxl \r\n"));
    writeFile(directory / "outer.list", std::string("a.vxl\n/abs/c.vxl\nC:\\d.vxl\n\\e.vxl\nsub/inner.list"));
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->addFile((directory / "outer.list").c_str());
    ASSERT_EQ(manager->getNumSources(), 5u);
    EXPECT_EQ(manager->getFilename(0), directory / "a.vxl");
    EXPECT_STREQ(manager->getFilename(1), "/abs/c.vxl");
    EXPECT_STREQ(manager->getFilename(2), "C:\\d.vxl");
    EXPECT_STREQ(manager->getFilename(3), "\\e.vxl");
    EXPECT_EQ(manager->getFilename(4), directory / "sub/b.vxl");
    EXPECT_EQ(manager->getFilename(5), nullptr);
}

TEST(FilePointSourceManager, RefusesWhatItCannotOpen)
{
    const TemporaryDirectory directory;
    const std::string loop = directory / "loop.list", text = directory / "a.txt";
    writeFile(loop, std::string("loop.list\n"));
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    EXPECT_EQ(errorOf(-1, [&] { manager->addFile("null"); }), "unsupported input file format 'null'");
    EXPECT_EQ(errorOf(-1, [&] { manager->addFile(text.c_str()); }),
              "TXT file requires a format parse string '-parse': '" + text + "'");
    EXPECT_EQ(errorOf(-1, [&] { manager->addFile(loop.c_str()); }),
              "list files are nested too deeply: '" + loop + "'");
    EXPECT_EQ(errorOf(-1, [&] { manager->createPointSource(0); }), "");
    manager->addFile((directory / "a.index").c_str());
    EXPECT_EQ(errorOf(ENOENT, [&] { manager->createPointSource(0); }),
              "No such file or directory path = " + directory / "a.index");
}

// Ten lists, each naming the next one sixty times: 60^9 files.
TEST(FilePointSourceManager, RefusesListsThatMultiply)
{
    const TemporaryDirectory directory;
    const auto nameOf = [&](int i) { return directory / ("l" + std::to_string(i) + ".list"); };
    for (int i = 0; i < 10; ++i) {
        std::string lines;
        for (int line = 0; line < 60; ++line)
            lines += i == 9 ? "a.las\n" : "l" + std::to_string(i + 1) + ".list\n";
        writeFile(nameOf(i), lines);
    }
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    const std::string message = errorOf(-1, [&] { manager->addFile(nameOf(0).c_str()); });
    EXPECT_EQ(message.rfind("list files name too many list files: ", 0), 0u) << message;
    // Two levels of lists are accepted.
    const Scoped<FilePointSourceManager> wide(FilePointSourceManager::create());
    wide->addFile(nameOf(7).c_str());
    EXPECT_EQ(wide->getNumSources(), 60u * 60 * 60);
}

TEST(FilePointSourceManager, OpensEachSourceOnce)
{
    const TemporaryDirectory directory;
    const std::string compressed = directory / "a.vxl", text = directory / "b.txt";
    writeFile(compressed, Testing::buildExampleSurvey());
    writeFile(text, std::string("# x y z\n1 2 3\n4,5,6\n"));
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    PointInfo layout;
    TXTPointReader::parseFormat("xyz", layout);
    manager->setTextOptions(true, layout, 0);
    manager->addFile(compressed.c_str());
    manager->addFile(text.c_str());
    const Scoped<PointSource> first(manager->createPointSource(0)), again(manager->createPointSource(0));
    EXPECT_EQ(first.get(), again.get());
    EXPECT_EQ(first->getNumPoints(), 2400);
    const Scoped<PointSource> second(manager->createPointSource(1));
    EXPECT_EQ(second->getNumPoints(), 2);
    EXPECT_EQ(second->getBounds().y.max, 5);
}

} // namespace
} // namespace Quillmoran
