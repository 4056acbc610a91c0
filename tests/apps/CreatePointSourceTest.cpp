#include <vxunpack/FilePointSourceManager.h>

#include "support/ExampleSurvey.h"
#include "support/Test.h"
#include "utils/sets/Formats.h"

namespace Quillmoran::Testing { namespace {

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
    EXPECT_STREQ(SimpleFileOpener::getPointSourceTypeName(static_cast<PointSourceType>(99)),
                 "Unknown File Type");
}

TEST(Formats, AreListedInTheManPages)
{
    const auto expectListed = [](const std::string& program, const std::string& name) {
        std::string text = readFile(EXAMPLES "/../docs/man/" + program + ".1");
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
    directory.file("sub/inner.list", "  b.vxl \r\n");
    directory.file("outer.list", "a.vxl\n/abs/c.vxl\nC:\\d.vxl\n\\e.vxl\nsub/inner.list");
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    manager->addFile((directory / "outer.list").c_str());
    Strings names;
    while (const char* name = manager->getFilename(names.size()))
        names.push_back(name);
    EXPECT_EQ(names,
              (Strings{directory / "a.vxl", "/abs/c.vxl", "C:\\d.vxl", "\\e.vxl", directory / "sub/b.vxl"}));
    // A source is opened once.
    writeFile(directory / "a.vxl", buildExampleSurvey());
    const Scoped<PointSource> first(manager->createPointSource(0)), again(manager->createPointSource(0));
    EXPECT_EQ(first.get(), again.get());
}

TEST(FilePointSourceManager, RefusesWhatItCannotOpen)
{
    const TemporaryDirectory directory;
    const std::string loop = directory / "loop.list", text = directory / "a.txt",
                      lines = directory / "lines.list";
    directory.file("loop.list", "before.vxl\nloop.list\n");
    const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
    EXPECT_EQ(errorOf(-1, [&] { manager->createPointSource(0); }), "");
    const auto outcomeOf = [&](const std::string& name) {
        return failureOf([&] { manager->addFile(name.c_str()); });
    };
    EXPECT_EQ(outcomeOf("null"), "-1 unsupported input file format 'null'");
    EXPECT_EQ(outcomeOf(text), "-1 TXT file requires a format parse string '-parse': '" + text + "'");
    EXPECT_EQ(outcomeOf(loop), "-1 list files are nested too deeply: '" + loop + "'");
    constexpr std::size_t longest = 1 << 20;
    directory.file("lines.list", std::string(longest - 5, ' ') + "a.vxl\n" + std::string(longest + 1, 'a'));
    EXPECT_EQ(outcomeOf(lines), "40005 " + lines + ":2: line is longer than 1048576 bytes");
    manager->addFile((directory / "a.index").c_str());
    EXPECT_EQ(manager->getFilename(0), directory / "a.index") << "the files of refused lists are dropped";
    EXPECT_EQ(errorOf(ENOENT, [&] { manager->createPointSource(0); }),
              "No such file or directory path = " + directory / "a.index");
}

TEST(FilePointSourceManager, LimitsListsOfLists)
{
    const TemporaryDirectory directory;
    const auto nameOf = [&](int i) { return "l" + std::to_string(i) + ".list"; };
    const auto outcomeOf = [&](int first, std::size_t count) {
        const Scoped<FilePointSourceManager> manager(FilePointSourceManager::create());
        const std::string outcome = failureOf([&] { manager->addFile((directory / nameOf(first)).c_str()); });
        EXPECT_EQ(manager->getNumSources(), count) << outcome;
        return outcome;
    };
    // Lists 0 to 16, each naming the next one: 16 lists can be nested.
    for (int i = 0; i <= 16; ++i)
        directory.file(nameOf(i), i == 16 ? "a.las\n" : nameOf(i + 1) + '\n');
    EXPECT_EQ(outcomeOf(1, 1), "no error");
    EXPECT_EQ(outcomeOf(0, 0), "-1 list files are nested too deeply: '" + directory / nameOf(16) + "'");
    // Ten lists, each naming the next one sixty times: 60^9 files.
    for (int i = 0; i < 10; ++i) {
        std::string lines;
        for (int line = 0; line < 60; ++line)
            lines += i == 9 ? "a.las\n" : nameOf(i + 1) + '\n';
        directory.file(nameOf(i), lines);
    }
    EXPECT_EQ(outcomeOf(0, 0).rfind("-1 list files name too many list files: ", 0), 0u);
    EXPECT_EQ(outcomeOf(7, 60 * 60 * 60), "no error");
    // Nested lists of 16 MiB at most, each counted with 256 bytes more.
    for (const auto& [size, count] : {std::pair((16u << 20) - 256, 1u), {(16u << 20) - 255, 0u}}) {
        std::string padded;
        while (padded.size() + 1024 < size)
            padded += std::string(1017, ' ') + "a.las\n";
        directory.file("l0.list", "l1.list\n");
        directory.file("l1.list", padded + std::string(size - padded.size() - 6, ' ') + "a.las\n");
        EXPECT_EQ(outcomeOf(0, count != 0 ? padded.size() / 1023 + 1 : 0) == "no error", count != 0) << size;
    }
}

}} // namespace Quillmoran::Testing
