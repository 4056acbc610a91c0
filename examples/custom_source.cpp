// A point source of one's own: "x y z" lines of a file, packed to .vxl or any other output format.
//
//   custom_source INPUT.xyz OUTPUT
#include <vxunpack/vxunpack.h>

#include <cstdio>
#include <fstream>
#include <string>

using namespace Quillmoran;

namespace {

// Delivers the points of one query.
class LineIterator final : public PointIterator
{
public:
    LineIterator(const std::string& path, const Bounds& bounds, double fraction, const PointInfo& layout,
                 ProgressDelegate* delegate)
        : m_file(path)
    {
        if (!m_file)
            QM_THROW_OS(path.c_str());
        init(bounds, fraction, layout, delegate);
    }

    std::size_t getNextPoints(PointData& buffer) override
    {
        std::size_t count = 0;
        double x, y, z;
        while (count < buffer.getNumSamples() && m_file >> x >> y >> z) {
            if (!isWanted(x, y, z) || !sample())
                continue;
            buffer.getX()[count] = x;
            buffer.getY()[count] = y;
            buffer.getZ()[count] = z;
            ++count;
        }
        if (!m_file && !m_file.eof())
            QM_THROW(ErrorCode::TextRead, "a line is not 'x y z'");
        return count;
    }

private:
    std::ifstream m_file;
};

// Number of points, bounds, scale and coordinate system are optional and not given here.
class LineSource final : public PointSource
{
public:
    static Scoped<PointSource> open(const std::string& path)
    {
        return Scoped<PointSource>(new LineSource(path));
    }

    const PointInfo& getPointInfo() const override { return m_layout; }
    PointIterator* createIterator(const Bounds& bounds, double fraction, const PointInfo& layout,
                                  ProgressDelegate* delegate) const override
    {
        return new LineIterator(m_path, bounds, fraction, layout, delegate);
    }

private:
    explicit LineSource(std::string path) : m_path(std::move(path))
    {
        for (const char* name : {"X", "Y", "Z"}) {
            ChannelInfo channel;
            channel.init(name, FLOAT64, 0, 0);
            m_layout.append(channel);
        }
    }

    std::string m_path;
    PointInfo m_layout;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: custom_source INPUT.xyz OUTPUT\n");
        return 1;
    }
    try {
        const vx::Cloud cloud(LineSource::open(argv[1]));
        const auto count = vx::write(argv[2], cloud);
        std::printf("%llu points written\n", static_cast<unsigned long long>(count));
    } catch (const Error& error) {
        std::fprintf(stderr, "Error: %s\n", error.what());
        return 1;
    }
    return 0;
}
