#include <vxunpack/PointWriter.h>

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

// Records the calls that it gets.
struct RecordingWriter final : SimplePointWriter
{
    explicit RecordingWriter(PointSource& source) { init(&source); }
    static Scoped<RecordingWriter> make(PointSource& source)
    {
        return Scoped<RecordingWriter>(new RecordingWriter(source));
    }

    using SimplePointWriter::checkQuantization;
    std::string failsIn; // the call that throws
    Strings calls;
    Bounds bounds;

    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override
    {
        supported.init(wanted);
        return true;
    }
    void writeBegin(const PointInfo& layout) override { record("begin", layout.getNumChannels()); }
    void writePoints(const PointData&, std::size_t count, ProgressDelegate* delegate) override
    {
        record("points", count);
        if (delegate)
            delegate->updateCompleted(static_cast<double>(count), "writing");
    }
    void writeEnd(std::int64_t count, const Bounds& written) override
    {
        bounds = written;
        record("end", static_cast<std::size_t>(count));
    }
    void writeAborted() noexcept override { calls.push_back("aborted"); }
    void record(const std::string& call, std::size_t number)
    {
        calls.push_back(call + ' ' + std::to_string(number));
        if (call == failsIn)
            QM_THROW(static_cast<ErrorCode>(40000), "test");
    }
};

const PointInfo layout = layoutXYZ({channel("Intensity", UINT16)});

// (0, 0, 0) to (9, 9, 9), each with an intensity.
Scoped<MemoryPointSource> tenPoints()
{
    const Numbers values{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
    return MemoryPointSource::make(layout, {values, values, values, values});
}

TEST(SimplePointWriter, WritesBlocksBetweenBeginAndEnd)
{
    const auto source = tenPoints();
    const auto writer = RecordingWriter::make(*source);
    writer->setChunckSize(4);
    EXPECT_EQ(writer->write(Bounds::Huge(), 1, layout, nullptr), 10);
    EXPECT_EQ(writer->calls, (Strings{"begin 4", "points 4", "points 4", "points 2", "end 10"}));
    writer->calls.clear();
    EXPECT_EQ(writer->write({{20, 30}, {0, 9}, {0, 9}}, 1, layout, nullptr), 0);
    EXPECT_EQ(writer->calls, (Strings{"begin 4", "end 0"}));
    EXPECT_EQ(writer->bounds, Bounds());
}

TEST(SimplePointWriter, FindsTheBoundsOfTheWrittenPoints)
{
    for (std::size_t count = 2; count < 10; ++count)
        for (std::size_t place = 0; place < count; ++place) {
            Numbers x(count, 1), y(count, 1), z(count, 1);
            x[place] = -5;
            y[place] = 5;
            z[count - 1 - place] = 7;
            const auto source = MemoryPointSource::make(layoutXYZ(), {x, y, z});
            const auto writer = RecordingWriter::make(*source);
            writer->setChunckSize(6);
            writer->write(Bounds::Huge(), 1, layoutXYZ(), nullptr);
            EXPECT_EQ(writer->bounds, (Bounds{{-5, 1}, {1, 5}, {1, 7}})) << place << " of " << count;
        }
}

TEST(SimplePointWriter, AbortsWhatItBegan)
{
    const auto source = tenPoints();
    const auto writer = RecordingWriter::make(*source);
    const PointInfo unknown = layoutXYZ({channel("Red", UINT16)});
    EXPECT_EQ(errorOf(40012, [&] { writer->write(Bounds::Huge(), 1, unknown, nullptr); }),
              "requesting channel not in the source");
    EXPECT_EQ(errorOf(40007, [&] { writer->write(Bounds::Huge(), 1, PointInfo(), nullptr); }),
              "must have x, y, and z channels");
    EXPECT_EQ(writer->calls, Strings());
    for (const char* failing : {"begin", "points", "end", "iterator"}) {
        writer->failsIn = failing;
        source->failAt(writer->failsIn == "iterator" ? 9 : 10);
        EXPECT_EQ(errorOf(40000, [&] { writer->write(Bounds::Huge(), 1, layout, nullptr); }), "test");
        EXPECT_EQ(writer->calls.back(), "aborted") << failing;
    }
}

TEST(SimplePointWriter, AddsItsWorkToThatOfTheSource)
{
    const auto source = tenPoints(); // whose work is 10 for any box
    const auto progressOf = [&](const Bounds& bounds, double fraction) {
        ProgressLog log;
        RecordingWriter::make(*source)->write(bounds, fraction, layout, &log);
        return log.last();
    };
    EXPECT_EQ(progressOf({{-1, 4.5}, {-1, 10}, {-1, 10}}, 1), 5 / (10 + 5.0));
    EXPECT_EQ(progressOf(Bounds::Huge(), 0.5), 5 / (5 + 5.0));
    source->setNumPoints(PointSource::unknownNumPoints);
    EXPECT_EQ(progressOf(Bounds::Huge(), 1), 10 / (10 + 10.0));
}

TEST(SimplePointWriter, UsesStepsAndCornerOfTheSourceByDefault)
{
    PointInfo stepped = layoutXYZ();
    stepped.getChannel("X")->setQuantization(0.01);
    const auto source = MemoryPointSource::make(stepped, {{5, 6}, {-7, 8}, {9, 1}});
    const auto expectQuantization = [](const PointWriter& writer, const Numbers& scale,
                                       const Numbers& offset) {
        EXPECT_EQ(Numbers(writer.getScale(), writer.getScale() + 3), scale);
        EXPECT_EQ(Numbers(writer.getOffset(), writer.getOffset() + 3), offset);
    };
    const auto writer = RecordingWriter::make(*source);
    expectQuantization(*writer, {0.01, 0.001, 0.001}, {5, -7, 1});
    const double scale[] = {1, 2, 3}, offset[] = {4, 5, 6};
    writer->setQuantization(scale, nullptr);
    expectQuantization(*writer, {1, 2, 3}, {5, -7, 1});
    source->setQuantization(scale, offset);
    expectQuantization(*RecordingWriter::make(*source), {1, 2, 3}, {4, 5, 6});
    source->setQuantization(nullptr, nullptr);
    source->setBounds({{-0.0, 1}, {-infinity, 2}, {}});
    const auto plain = RecordingWriter::make(*source);
    expectQuantization(*plain, {0.01, 0.001, 0.001}, {0, 0, 0});
    EXPECT_FALSE(std::signbit(plain->getOffset()[0]));
}

TEST(SimplePointWriter, ChecksScalesAndOffsets)
{
    const auto source = tenPoints();
    const auto writer = RecordingWriter::make(*source);
    const auto check = [&writer](double scale, double offset) {
        const double scales[] = {1, 1, scale}, offsets[] = {1, offset, 1};
        writer->setQuantization(scales, offsets);
        return errorOf(40007, [&] { writer->checkQuantization(); });
    };
    for (const double scale : {1e-307, 8e298, 0.001})
        EXPECT_EQ(check(scale, -1e308), "nothing thrown") << scale;
    EXPECT_EQ(check(0, 1), "the scale 0 of Z cannot be used");
    for (const double scale : {-1.0, 1e-310, 9e298, infinity, -infinity, nan})
        EXPECT_EQ(check(scale, 1).rfind("the scale ", 0), 0u) << scale;
    for (const double offset : {infinity, -infinity, nan})
        EXPECT_EQ(check(1, offset).rfind("the offset ", 0), 0u) << offset;
}

TEST(PointWriter, DropsRecordsThatDoNotApplyToTheQuery)
{
    const auto source = tenPoints();
    for (const char* key : {"LAS_BoundingBox", "Other", "PointRecordsByReturnCount"})
        source->metadata().add(key, nullptr, METADATA_BLOB, "x", 1);
    const Bounds all = source->getBounds(), huge = Bounds::Huge();
    const auto kept = [&](const Bounds& box, double fraction) {
        const auto writer = RecordingWriter::make(*source);
        writer->write(box, fraction, layout, nullptr);
        Strings keys;
        for (std::size_t i = 0; i < writer->getMetadata().getNumRecords(); ++i)
            keys.emplace_back(writer->getMetadata().getKey(i));
        return keys;
    };
    const Strings boxAndCounts{"LAS_BoundingBox", "Other", "PointRecordsByReturnCount"}, neither{"Other"};
    EXPECT_EQ(kept(huge, 1), boxAndCounts);
    EXPECT_EQ(kept(all, 5), boxAndCounts);
    EXPECT_EQ(kept(huge, 0.5), (Strings{"LAS_BoundingBox", "Other"}));
    EXPECT_EQ(kept({all.x, all.y, {0, 8.9}}, 1), neither);
    EXPECT_EQ(kept({{0.1, 9}, all.y, all.z}, 1), neither);
    EXPECT_EQ(kept({{20, 30}, all.y, all.z}, 0.5), neither);
}

}} // namespace Quillmoran::Testing
