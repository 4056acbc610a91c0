#include "support/Errors.h"
#include "support/Layouts.h"
#include "support/MemoryPointSource.h"
#include <vxunpack/PointWriter.h>
#include <vxunpack/ProgressDelegate.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace Quillmoran {
namespace {

using Testing::channel;
using Testing::errorOf;
using Testing::layoutXYZ;
using Testing::MemoryPointSource;
using Numbers = std::vector<double>;
using Strings = std::vector<std::string>;

// Records the calls that it gets.
class RecordingWriter final : public SimplePointWriter
{
public:
    static Scoped<RecordingWriter> make(PointSource& source)
    {
        Scoped<RecordingWriter> writer(new RecordingWriter);
        writer->init(&source);
        return writer;
    }

    std::string unsupported; // a channel that the format does not support
    bool warnsOfDropped = true;
    std::string failsIn; // the call that throws
    Strings calls;
    Bounds bounds;

    bool supportedChannels(const PointInfo& wanted, PointInfo& supported) const override
    {
        for (std::size_t i = 0; i < wanted.getNumChannels(); ++i)
            if (wanted.getChannel(i).getName() != unsupported)
                supported.append(wanted.getChannel(i));
        return warnsOfDropped;
    }

protected:
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

private:
    void record(const std::string& call, std::size_t number)
    {
        calls.push_back(call + ' ' + std::to_string(number));
        if (call == failsIn)
            QM_THROW(static_cast<ErrorCode>(40000), "test");
    }
};

class Listener final : public ProgressDelegate
{
public:
    Strings warnings;
    double progress = 0;

    void reportProgress(double fraction, const char*) override { progress = fraction; }
    bool getCancelled() override { return false; }
    void displayWarning(const char* text) override { warnings.push_back(text); }
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
            const auto source = MemoryPointSource::make(layoutXYZ(), {x, y, z});
            const auto writer = RecordingWriter::make(*source);
            writer->setChunckSize(6);
            writer->write(Bounds::Huge(), 1, layoutXYZ(), nullptr);
            EXPECT_EQ(writer->bounds, (Bounds{{-5, 1}, {1, 5}, {1, 1}})) << place << " of " << count;
        }
}

TEST(SimplePointWriter, WarnsOfUnsupportedChannels)
{
    const auto source = tenPoints();
    const auto writer = RecordingWriter::make(*source);
    Listener listener;
    writer->unsupported = "Intensity";
    writer->write(Bounds::Huge(), 1, layout, nullptr);
    EXPECT_EQ(writer->calls[0], "begin 3");
    writer->write(Bounds::Huge(), 1, layout, &listener);
    EXPECT_EQ(listener.warnings, Strings{"the output format does not support channel 'Intensity'"});
    writer->warnsOfDropped = false;
    writer->write(Bounds::Huge(), 1, layout, &listener);
    EXPECT_EQ(listener.warnings.size(), 1u);
}

TEST(SimplePointWriter, DoesNotAbortWhatItDidNotBegin)
{
    const auto source = tenPoints();
    const auto writer = RecordingWriter::make(*source);
    const PointInfo unknown = layoutXYZ({channel("Red", UINT16)});
    EXPECT_EQ(errorOf(40012, [&] { writer->write(Bounds::Huge(), 1, unknown, nullptr); }),
              "requesting channel not in the source");
    EXPECT_EQ(errorOf(40007, [&] { writer->write(Bounds::Huge(), 1, PointInfo(), nullptr); }),
              "must have x, y, and z channels");
    EXPECT_EQ(writer->calls, Strings());
}

TEST(SimplePointWriter, AbortsWhatItBegan)
{
    for (const std::string failing : {"begin", "points", "end", "iterator"}) {
        const auto source = tenPoints();
        const auto writer = RecordingWriter::make(*source);
        writer->failsIn = failing;
        if (failing == "iterator")
            source->failAt(9);
        EXPECT_EQ(errorOf(40000, [&] { writer->write(Bounds::Huge(), 1, layout, nullptr); }), "test");
        EXPECT_EQ(writer->calls.back(), "aborted") << failing;
    }
}

TEST(SimplePointWriter, AddsItsWorkToThatOfTheSource)
{
    const auto source = tenPoints(); // whose work is 10 for any query
    const auto progressOf = [&](const Bounds& bounds, double fraction) {
        Listener listener;
        RecordingWriter::make(*source)->write(bounds, fraction, layout, &listener);
        return listener.progress;
    };
    EXPECT_EQ(progressOf({{-1, 4.5}, {-1, 10}, {-1, 10}}, 1), 5 / (10 + 5.0));
    EXPECT_EQ(progressOf(Bounds::Huge(), 0.5), 5 / (10 + 5.0));
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
    const double partial[] = {1, 0, 3}; // the same as none
    source->setQuantization(partial, offset);
    expectQuantization(*RecordingWriter::make(*source), {0.01, 0.001, 0.001}, {5, -7, 1});
    source->setQuantization(scale, offset);
    expectQuantization(*RecordingWriter::make(*source), {1, 2, 3}, {4, 5, 6});
}

TEST(PointWriter, DropsRecordsThatDoNotApplyToTheQuery)
{
    const auto source = tenPoints();
    for (const char* key : {"LAS_BoundingBox", "Other", "PointRecordsByReturnCount"})
        source->metadata().add(key, nullptr, METADATA_BLOB, "x", 1);
    const Bounds all = source->getBounds(), huge = Bounds::Huge();
    const struct
    {
        Bounds box;
        double fraction;
        bool keepsBox, keepsCounts;
    } cases[] = {{huge, 1, true, true},
                 {all, 5, true, true},
                 {huge, 0.5, true, false},
                 {{all.x, all.y, {0, 8.9}}, 1, false, false},
                 {{{0.1, 9}, all.y, all.z}, 1, false, false},
                 {{{20, 30}, all.y, all.z}, 0.5, false, false}};
    for (const auto& each : cases) {
        const auto writer = RecordingWriter::make(*source);
        writer->write(each.box, each.fraction, layout, nullptr);
        const Metadata& kept = writer->getMetadata();
        EXPECT_EQ(kept.has("LAS_BoundingBox"), each.keepsBox) << each.box.x.min << ' ' << each.fraction;
        EXPECT_EQ(kept.has("PointRecordsByReturnCount"), each.keepsCounts) << each.box.x.min;
        EXPECT_TRUE(kept.has("Other"));
    }
}

TEST(NULLPointWriter, ReadsAndCounts)
{
    const auto source = tenPoints();
    const Scoped<NULLPointWriter> writer(NULLPointWriter::create());
    writer->init(source.get());
    writer->setChunckSize(3);
    Listener listener;
    EXPECT_EQ(writer->write(Bounds::Huge(), 1, layout, &listener), 10);
    EXPECT_EQ(writer->write({{2, 4}, {0, 9}, {0, 9}}, 1, layout, nullptr), 3);
    listener.updateCompleted(5, "");
    EXPECT_EQ(listener.progress, 0.5); // only the work of the source
}

} // namespace
} // namespace Quillmoran
