#include "view/TerminalPicture.h"

#include <vxunpack/Base.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>
#include <zlib.h>

namespace Quillmoran {

namespace {

std::string_view variable(const char* name)
{
    const char* value = std::getenv(name);
    return value ? value : "";
}

bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

// A terminal without echo and lines until the end of the scope. Signals of this thread wait meanwhile: one
// that stops or ends the process would leave the terminal so, and a terminal stops processes of the
// background that change it.
class RawTerminal
{
public:
    explicit RawTerminal(int descriptor) : m_descriptor(descriptor)
    {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_signals);
        m_isRaw = ::tcgetattr(descriptor, &m_modes) == 0;
        if (!m_isRaw)
            return;
        termios modes = m_modes;
        modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        modes.c_cc[VMIN] = 0;
        modes.c_cc[VTIME] = 0;
        m_isRaw = ::tcsetattr(descriptor, TCSANOW, &modes) == 0;
    }
    ~RawTerminal()
    {
        if (m_isRaw)
            ::tcsetattr(m_descriptor, TCSANOW, &m_modes);
        ::pthread_sigmask(SIG_SETMASK, &m_signals, nullptr);
    }
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;

    bool isRaw() const noexcept { return m_isRaw; }

private:
    const int m_descriptor;
    sigset_t m_signals;
    termios m_modes = {};
    bool m_isRaw = false;
};

using Clock = std::chrono::steady_clock;

// Whether the descriptor is ready for these events before the end.
bool waitFor(int descriptor, short events, Clock::time_point end)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd each = {descriptor, events, 0};
    return left > 0 && ::poll(&each, 1, static_cast<int>(left)) == 1 && (each.revents & events) != 0;
}

// The primary device attributes, "62;4;22c"; empty without an answer. A stopped terminal accepts no request.
std::string askAttributes(int descriptor)
{
    constexpr std::string_view request = "\033[c", begin = "\033[?";
    constexpr std::size_t longest = 4096;
    const RawTerminal terminal(descriptor);
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(500);
    if (!terminal.isRaw() || !waitFor(descriptor, POLLOUT, end) ||
        ::write(descriptor, request.data(), request.size()) != static_cast<ssize_t>(request.size()))
        return {};
    std::string answer;
    char next = 0;
    while (answer.size() < longest && waitFor(descriptor, POLLIN, end) && ::read(descriptor, &next, 1) == 1) {
        answer += next;
        const std::size_t found = answer.rfind(begin);
        if (next == 'c' && found != std::string::npos)
            return answer.substr(found + begin.size());
    }
    return {};
}

bool canAsk(int descriptor)
{
    const pid_t foreground = ::tcgetpgrp(descriptor); // fails if it is not the controlling terminal
    return (::fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDWR &&
           (foreground < 0 || foreground == ::getpgrp());
}

// The mean of the pixels in each part of a grid of `width` times `height` parts, at most one per pixel.
Image shrink(const Image& image, std::size_t width, std::size_t height)
{
    struct Sum
    {
        std::uint64_t red = 0, green = 0, blue = 0, alpha = 0; // colours are multiplied by alpha
    };
    Image result(width, height, {});
    std::vector<Sum> sums(width);
    for (std::size_t y = 0; y < height; ++y) {
        const std::size_t top = y * image.height() / height, bottom = (y + 1) * image.height() / height;
        std::fill(sums.begin(), sums.end(), Sum());
        for (std::size_t row = top; row < bottom; ++row) {
            const Color* pixel = image.row(row).data();
            for (std::size_t x = 0, column = 0; x < width; ++x) {
                Sum& sum = sums[x];
                for (const std::size_t right = (x + 1) * image.width() / width; column < right; ++column) {
                    const Color color = pixel[column];
                    sum.red += std::uint64_t{color.red} * color.alpha;
                    sum.green += std::uint64_t{color.green} * color.alpha;
                    sum.blue += std::uint64_t{color.blue} * color.alpha;
                    sum.alpha += color.alpha;
                }
            }
        }
        for (std::size_t x = 0; x < width; ++x) {
            const Sum& sum = sums[x];
            const std::uint64_t left = x * image.width() / width, right = (x + 1) * image.width() / width;
            const std::uint64_t pixels = (right - left) * (bottom - top);
            const auto mean = [](std::uint64_t total, std::uint64_t weight) {
                return static_cast<std::uint8_t>(weight == 0 ? 0 : (total + weight / 2) / weight);
            };
            result.row(y)[x] = {mean(sum.red, sum.alpha), mean(sum.green, sum.alpha),
                                mean(sum.blue, sum.alpha), mean(sum.alpha, pixels)};
        }
    }
    return result;
}

// The image within a size, in its proportions.
Image fit(const Image& image, std::size_t width, std::size_t height)
{
    const auto scaled = [](std::size_t size, std::size_t numerator, std::size_t denominator) {
        return std::max<std::size_t>((size * numerator + denominator / 2) / denominator, 1);
    };
    width = std::min(width, image.width());
    if (scaled(image.height(), width, image.width()) <= height)
        return shrink(image, width, scaled(image.height(), width, image.width()));
    return shrink(image, scaled(image.width(), height, image.height()), height);
}

bool isOpaque(Color color)
{
    return color.alpha >= 128;
}

std::vector<std::uint8_t> compress(const Image& image)
{
    constexpr int level = 4; // most of the effect in a third of the usual time
    const std::span<const Color> pixels = image.pixels();
    uLongf size = ::compressBound(pixels.size_bytes());
    std::vector<std::uint8_t> bytes(size);
    const int status = ::compress2(bytes.data(), &size, reinterpret_cast<const Bytef*>(pixels.data()),
                                   pixels.size_bytes(), level);
    if (status != Z_OK)
        QM_THROW(ErrorCode::General, "cannot compress the picture (zlib error %d)", status);
    bytes.resize(size);
    return bytes;
}

void appendBase64(std::string& to, std::span<const std::uint8_t> bytes)
{
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = group << 8 | (i + k < bytes.size() ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            to += i + k <= bytes.size() ? digits[group >> (18 - 6 * k) & 63] : '=';
    }
}

std::string encodeKitty(const Image& image, std::size_t columns)
{
    constexpr std::size_t widest = 10000;            // which terminals accept
    constexpr std::size_t chunkBytes = 4096 / 4 * 3; // 4096 in base64
    if (image.width() > widest || image.height() > widest)
        return encodeKitty(fit(image, widest, widest), columns);
    const std::vector<std::uint8_t> bytes = compress(image);
    // Without answers (q=2), which nobody would read.
    std::string text = "\033_Ga=T,q=2,f=32,o=z,s=" + std::to_string(image.width()) +
                       ",v=" + std::to_string(image.height()) + ",c=" + std::to_string(columns) + ",m=";
    for (std::size_t begin = 0; begin < bytes.size(); begin += chunkBytes) {
        const std::size_t size = std::min(chunkBytes, bytes.size() - begin);
        text += begin == 0 ? "" : "\033_Gm=";
        text += begin + size < bytes.size() ? "1;" : "0;";
        appendBase64(text, std::span(bytes).subspan(begin, size));
        text += "\033\\";
    }
    return text + '\n';
}

// At most 256 colours for an image, found by median cut among colours of five bits per channel.
class Palette
{
public:
    explicit Palette(const Image& image)
    {
        std::vector<Bin> bins(m_entries.size());
        for (const Color color : image.pixels()) {
            if (!isOpaque(color))
                continue;
            Bin& bin = bins[keyOf(color)];
            ++bin.count;
            bin.sums[0] += color.red;
            bin.sums[1] += color.green;
            bin.sums[2] += color.blue;
        }
        for (std::size_t key = 0; key < bins.size(); ++key)
            bins[key].key = key;
        bins.erase(std::remove_if(bins.begin(), bins.end(), [](const Bin& bin) { return bin.count == 0; }),
                   bins.end());
        for (const std::span<Bin> box : divide(bins))
            addColor(box);
    }

    // RGB.
    const std::vector<std::array<std::uint8_t, 3>>& colors() const noexcept { return m_colors; }
    std::uint8_t indexOf(Color color) const noexcept { return m_entries[keyOf(color)]; }

private:
    static constexpr std::size_t maxColors = 256;

    struct Bin
    {
        std::size_t key = 0;
        std::uint64_t count = 0;
        std::array<std::uint64_t, 3> sums = {};
    };

    static std::size_t keyOf(Color color) noexcept
    {
        return static_cast<std::size_t>(color.red >> 3 << 10 | color.green >> 3 << 5 | color.blue >> 3);
    }
    static std::size_t place(const Bin& bin, std::size_t axis) { return bin.key >> (10 - 5 * axis) & 31; }

    // The axis of the largest extent, and this extent.
    static std::pair<std::size_t, std::size_t> longestAxis(std::span<const Bin> box)
    {
        std::pair<std::size_t, std::size_t> longest(0, 0);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const auto [low, high] =
                std::minmax_element(box.begin(), box.end(), [axis](const Bin& a, const Bin& b) {
                    return place(a, axis) < place(b, axis);
                });
            const std::size_t extent = place(*high, axis) - place(*low, axis);
            if (extent > longest.second)
                longest = {axis, extent};
        }
        return longest;
    }

    static std::uint64_t countOf(std::span<const Bin> box)
    {
        std::uint64_t count = 0;
        for (const Bin& bin : box)
            count += bin.count;
        return count;
    }

    // Cuts the box of the most pixels times squared extent until there are enough, or each has one bin.
    static std::vector<std::span<Bin>> divide(std::span<Bin> bins)
    {
        std::vector<std::span<Bin>> boxes;
        std::vector<std::uint64_t> weights;
        const auto weigh = [](std::span<const Bin> box) {
            const std::uint64_t extent = longestAxis(box).second;
            return countOf(box) * extent * extent;
        };
        if (!bins.empty()) {
            boxes.push_back(bins);
            weights.push_back(weigh(bins));
        }
        while (!boxes.empty() && boxes.size() < maxColors) {
            const auto heaviest =
                static_cast<std::size_t>(std::max_element(weights.begin(), weights.end()) - weights.begin());
            if (weights[heaviest] == 0)
                break;
            const std::span<Bin> box = boxes[heaviest];
            const std::size_t axis = longestAxis(box).first;
            std::sort(box.begin(), box.end(), [axis](const Bin& a, const Bin& b) {
                return std::pair(place(a, axis), a.key) < std::pair(place(b, axis), b.key);
            });
            const std::uint64_t half = countOf(box) / 2;
            std::size_t cut = 1;
            for (std::uint64_t count = box[0].count; cut + 1 < box.size() && count < half; ++cut)
                count += box[cut].count;
            boxes[heaviest] = box.first(cut);
            weights[heaviest] = weigh(boxes[heaviest]);
            boxes.push_back(box.subspan(cut));
            weights.push_back(weigh(boxes.back()));
        }
        return boxes;
    }

    void addColor(std::span<const Bin> box)
    {
        std::array<std::uint64_t, 3> sums = {};
        for (const Bin& bin : box) {
            m_entries[bin.key] = static_cast<std::uint8_t>(m_colors.size());
            for (std::size_t axis = 0; axis < 3; ++axis)
                sums[axis] += bin.sums[axis];
        }
        const std::uint64_t count = countOf(box);
        std::array<std::uint8_t, 3>& color = m_colors.emplace_back();
        for (std::size_t axis = 0; axis < 3; ++axis)
            color[axis] = static_cast<std::uint8_t>((sums[axis] + count / 2) / count);
    }

    std::vector<std::array<std::uint8_t, 3>> m_colors;
    std::vector<std::uint8_t> m_entries = std::vector<std::uint8_t>(std::size_t{1} << 15);
};

void appendRun(std::string& to, char sixel, std::size_t count)
{
    constexpr std::size_t shortest = 4; // that is shorter as a run
    if (count < shortest)
        to.append(count, sixel);
    else
        to += '!' + std::to_string(count) + sixel;
}

std::string encodeSixel(const Image& image)
{
    constexpr std::size_t bandRows = 6;
    constexpr char noPixels = '?';
    struct Column
    {
        std::size_t x;
        unsigned rows; // a bit per row
    };
    const Palette palette(image);
    // Pixels that are not set stay as they are (1); pixels are square.
    std::string text =
        "\033P0;1;0q\"1;1;" + std::to_string(image.width()) + ';' + std::to_string(image.height());
    for (std::size_t i = 0; i < palette.colors().size(); ++i) {
        text += '#' + std::to_string(i) + ";2";
        for (const unsigned value : palette.colors()[i])
            text += ';' + std::to_string((value * 100 + 127) / 255);
    }
    std::vector<std::vector<Column>> columns(palette.colors().size());
    for (std::size_t top = 0; top < image.height(); top += bandRows) {
        const std::size_t numRows = std::min(bandRows, image.height() - top);
        for (std::size_t x = 0; x < image.width(); ++x)
            for (std::size_t row = 0; row < numRows; ++row) {
                const Color color = image.row(top + row)[x];
                if (!isOpaque(color))
                    continue;
                std::vector<Column>& ofColor = columns[palette.indexOf(color)];
                if (ofColor.empty() || ofColor.back().x != x)
                    ofColor.push_back({x, 0});
                ofColor.back().rows |= 1u << row;
            }
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (columns[i].empty())
                continue;
            text += '#' + std::to_string(i);
            std::size_t end = 0; // of what is written
            for (std::size_t k = 0; k < columns[i].size();) {
                const Column first = columns[i][k];
                std::size_t count = 1;
                while (k + count < columns[i].size() && columns[i][k + count].x == first.x + count &&
                       columns[i][k + count].rows == first.rows)
                    ++count;
                appendRun(text, noPixels, first.x - end);
                appendRun(text, static_cast<char>(noPixels + first.rows), count);
                end = first.x + count;
                k += count;
            }
            text += '$';
            columns[i].clear();
        }
        text += '-';
    }
    return text + "\033\\";
}

// The nearest of the 216 colours and 24 greys that terminals have in common.
unsigned indexedColor(Color color)
{
    constexpr int levels[] = {0, 95, 135, 175, 215, 255};
    const auto nearestLevel = [&](int value) {
        return std::min_element(std::begin(levels), std::end(levels),
                                [value](int a, int b) { return std::abs(a - value) < std::abs(b - value); }) -
               std::begin(levels);
    };
    const auto distance = [color](int red, int green, int blue) {
        const int dr = red - color.red, dg = green - color.green, db = blue - color.blue;
        return dr * dr + dg * dg + db * db;
    };
    const auto red = nearestLevel(color.red), green = nearestLevel(color.green),
               blue = nearestLevel(color.blue);
    const int grey = std::clamp(((color.red + color.green + color.blue) / 3 - 3) / 10, 0, 23);
    const int shade = 8 + 10 * grey;
    if (distance(shade, shade, shade) < distance(levels[red], levels[green], levels[blue]))
        return static_cast<unsigned>(232 + grey);
    return static_cast<unsigned>(16 + 36 * red + 6 * green + blue);
}

std::string encodeBlocks(const Image& original, std::size_t columns)
{
    constexpr const char* upperHalf = "\u2580";
    constexpr const char* lowerHalf = "\u2584";
    const bool isTrueColor = variable("COLORTERM") == "truecolor" || variable("COLORTERM") == "24bit";
    const auto name = [isTrueColor](const char* ground, Color color) {
        if (!isTrueColor)
            return ground + (";5;" + std::to_string(indexedColor(color)));
        return ground + (";2;" + std::to_string(color.red)) + ';' + std::to_string(color.green) + ';' +
               std::to_string(color.blue);
    };
    const Image image = fit(original, columns, original.height());
    std::string text;
    for (std::size_t y = 0; y < image.height(); y += 2) {
        std::string current = "0"; // attributes
        for (std::size_t x = 0; x < image.width(); ++x) {
            const Color top = image.row(y)[x];
            const Color bottom = y + 1 < image.height() ? image.row(y + 1)[x] : Color{0, 0, 0, 0};
            const char* shape = isOpaque(top) ? upperHalf : isOpaque(bottom) ? lowerHalf : " ";
            std::string attributes = "0";
            if (isOpaque(top) && isOpaque(bottom))
                attributes = name("38", top) + ';' + name("48", bottom);
            else if (isOpaque(top) || isOpaque(bottom))
                attributes += ';' + name("38", isOpaque(top) ? top : bottom);
            if (attributes != current)
                text += "\033[" + attributes + 'm';
            current = std::move(attributes);
            text += shape;
        }
        text += "\033[0m\n";
    }
    return text;
}

} // namespace

TerminalGraphics detectTerminalGraphics(int descriptor)
{
    const std::string_view type = variable("TERM"), program = variable("TERM_PROGRAM");
    if (::isatty(descriptor) != 1 || type.empty() || type == "dumb")
        return TerminalGraphics::Blocks;
    // These pass on only what they know themselves; the variables are those of the terminal around them.
    const bool isMultiplexed = type.substr(0, 4) == "tmux" || type.substr(0, 6) == "screen";
    if (!isMultiplexed && (contains(type, "kitty") || contains(type, "ghostty") || program == "WezTerm" ||
                           program == "ghostty" || !variable("KITTY_WINDOW_ID").empty()))
        return TerminalGraphics::Kitty;
    if (!canAsk(descriptor))
        return TerminalGraphics::Blocks;
    const std::string attributes = askAttributes(descriptor);
    const bool hasSixel = contains(attributes, ";4;") || contains(attributes, ";4c");
    return hasSixel ? TerminalGraphics::Sixel : TerminalGraphics::Blocks;
}

std::string encodeForTerminal(const Image& image, TerminalGraphics graphics, std::size_t columns)
{
    if (image.width() == 0 || image.height() == 0)
        return {};
    columns = std::max<std::size_t>(columns, 1);
    switch (graphics) {
    case TerminalGraphics::Kitty:
        return encodeKitty(image, columns);
    case TerminalGraphics::Sixel:
        return encodeSixel(image);
    case TerminalGraphics::Blocks:
        break;
    }
    return encodeBlocks(image, columns);
}

} // namespace Quillmoran
