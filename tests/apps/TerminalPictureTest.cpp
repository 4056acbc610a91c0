// The bytes for terminals are decoded here as terminals decode them.
#include "view/TerminalPicture.h"

#include "support/Terminal.h"
#include "support/Test.h"
#include "view/StrokeFont.h"

#include <set>
#include <termios.h>
#include <zlib.h>

namespace Quillmoran::Testing { namespace {

constexpr Color clear = {0, 0, 0, 0};

// Coloured stripes of every run length, a transparent hole, and sizes that are multiples of nothing.
Image makePicture(std::size_t width, std::size_t height)
{
    Image image(width, height, {});
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x)
            image.row(y)[x] = {static_cast<std::uint8_t>(x * 255 / width),
                               static_cast<std::uint8_t>((x / 7 + y) % 5 * 60),
                               static_cast<std::uint8_t>(y * 255 / height)};
    for (std::size_t y = height / 3; y < height / 2; ++y)
        std::fill_n(image.row(y).begin() + static_cast<std::ptrdiff_t>(width / 4), width / 3, clear);
    return image;
}

std::size_t numberAt(const std::string& text, std::size_t& at)
{
    std::size_t used = 0;
    const std::size_t number = std::stoul(text.substr(at, 8), &used);
    at += used;
    return number;
}

Image decodeSixel(const std::string& text)
{
    const std::string head = "\033P0;1;0q\"1;1;";
    EXPECT_EQ(text.compare(0, head.size(), head), 0);
    std::size_t at = head.size();
    const std::size_t width = numberAt(text, at), height = numberAt(text, ++at);
    Image image(width, height, clear);
    std::map<std::size_t, Color> palette;
    Color color;
    for (std::size_t x = 0, top = 0; text[at] != '\033';) {
        const char code = text[at++];
        std::size_t count = 1;
        char sixel = code;
        if (code == '#') {
            const std::size_t index = numberAt(text, at);
            if (text[at] == ';') {
                std::uint8_t values[3];
                EXPECT_EQ(numberAt(text, ++at), 2u); // RGB
                for (std::uint8_t& value : values)
                    value = static_cast<std::uint8_t>(
                        std::lround(2.55 * static_cast<double>(numberAt(text, ++at))));
                palette[index] = {values[0], values[1], values[2]};
            }
            color = palette.at(index);
            continue;
        }
        if (code == '$' || code == '-') {
            x = 0;
            top += code == '-' ? 6 : 0;
            continue;
        }
        if (code == '!') {
            count = numberAt(text, at);
            sixel = text[at++];
        }
        for (; count > 0; --count, ++x)
            for (std::size_t row = 0; row < 6; ++row)
                if ((sixel - '?') >> row & 1) {
                    if (x >= width || top + row >= height) {
                        ADD_FAILURE() << "a pixel outside of the image";
                        return image;
                    }
                    image.row(top + row)[x] = color;
                }
    }
    EXPECT_LE(palette.size(), 256u);
    EXPECT_EQ(text.substr(text.size() - 2), "\033\\");
    return image;
}

// The pixels, of which `width` and `height` are returned.
std::vector<std::uint8_t> decodeKitty(const std::string& text, std::size_t& width, std::size_t& height)
{
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<std::uint8_t> packed;
    bool isLast = false;
    for (std::size_t at = 0; at + 1 < text.size();) {
        EXPECT_FALSE(isLast);
        const std::size_t data = text.find(';', at) + 1, end = text.find("\033\\", at);
        std::smatch size;
        const std::string keys = text.substr(at, data - at);
        if (std::regex_search(keys, size, std::regex("\033_Ga=T,q=2,f=32,o=z,s=(\\d+),v=(\\d+),c=33,")))
            width = std::stoul(size[1]), height = std::stoul(size[2]);
        isLast = keys.find("m=0") != std::string::npos;
        EXPECT_TRUE(isLast || end - data == 4096) << end - data;
        std::uint32_t group = 0;
        for (std::size_t i = data; i < end; ++i) {
            group = group << 6 | static_cast<std::uint32_t>(digits.find(text[i]) & 63);
            if ((i - data) % 4 == 3)
                for (const int shift : {16, 8, 0})
                    packed.push_back(static_cast<std::uint8_t>(group >> shift));
        }
        at = end + 2;
    }
    EXPECT_TRUE(isLast);
    std::vector<std::uint8_t> pixels(width * height * 4);
    uLongf length = pixels.size();
    EXPECT_EQ(::uncompress(pixels.data(), &length, packed.data(), packed.size()), Z_OK); // ignores padding
    EXPECT_EQ(length, pixels.size());
    return pixels;
}

TEST(TerminalPicture, TerminalsDecodeThePixels)
{
    // At most 256 colours are kept, but for the rounding of sixel; of thousands, the mean difference is
    // small.
    for (const auto& [image, allowed] : {std::pair(makePicture(16, 15), 3), {makePicture(217, 95), 10}}) {
        const Image sixel = decodeSixel(encodeForTerminal(image, TerminalGraphics::Sixel, 1));
        ASSERT_EQ(std::pair(sixel.width(), sixel.height()), std::pair(image.width(), image.height()));
        std::size_t numDiffering = 0;
        int distance = 0;
        for (std::size_t i = 0; i < image.pixels().size(); ++i) {
            const Color a = image.pixels()[i], b = sixel.pixels()[i];
            numDiffering += a.alpha != b.alpha;
            distance += std::abs(a.red - b.red) + std::abs(a.green - b.green) + std::abs(a.blue - b.blue);
        }
        EXPECT_EQ(numDiffering, 0u);
        EXPECT_LE(distance / static_cast<double>(3 * image.pixels().size()), allowed);
    }

    // Incompressible, so that there are many chunks; and larger than terminals accept.
    Random random(3);
    Image noise(70, 60, {}), wide(12000, 2, {1, 2, 3, 4});
    for (std::size_t y = 0; y < noise.height(); ++y)
        for (Color& pixel : noise.row(y))
            pixel = {static_cast<std::uint8_t>(random.below(256)),
                     static_cast<std::uint8_t>(random.below(256)), 9, 200};
    std::size_t width = 0, height = 0;
    const auto pixels = decodeKitty(encodeForTerminal(noise, TerminalGraphics::Kitty, 33), width, height);
    EXPECT_EQ(std::pair(width, height), std::pair(noise.width(), noise.height()));
    EXPECT_EQ(std::memcmp(pixels.data(), noise.pixels().data(), pixels.size()), 0);
    const auto narrow = decodeKitty(encodeForTerminal(wide, TerminalGraphics::Kitty, 33), width, height);
    EXPECT_EQ(std::pair(width, height), std::pair(std::size_t{10000}, std::size_t{2}));
    EXPECT_EQ(std::memcmp(narrow.data() + 40000, &wide.pixels()[0], 4), 0);
    EXPECT_EQ(encodeForTerminal(Image(0, 5, {}), TerminalGraphics::Kitty, 33), "");
}

TEST(TerminalPicture, BlocksAreMeansOfPixels)
{
    // Two by three cells of 3 x 2 pixels; one is transparent, one half red and half clear.
    Image image(6, 6, {10, 20, 30});
    image.row(0)[0].red = 70;
    for (const std::size_t x : {3, 4, 5}) {
        for (std::size_t y = 0; y < 3; ++y)
            image.row(y)[x] = clear;
        for (std::size_t y = 3; y < 6; ++y)
            image.row(y)[x] = {200, 0, 0};
    }
    ::setenv("COLORTERM", "truecolor", 1);
    EXPECT_EQ(encodeForTerminal(image, TerminalGraphics::Blocks, 2),
              "\033[38;2;17;20;30;48;2;10;20;30m\u2580\033[0;38;2;200;0;0m\u2584\033[0m\n");
    EXPECT_EQ(encodeForTerminal(Image(2, 3, clear), TerminalGraphics::Blocks, 9), "  \033[0m\n  \033[0m\n");
    ::unsetenv("COLORTERM");
    EXPECT_EQ(encodeForTerminal(image, TerminalGraphics::Blocks, 2),
              "\033[38;5;233;48;5;233m\u2580\033[0;38;5;160m\u2584\033[0m\n");
}

TEST(TerminalPicture, AsksTheTerminalAndRestoresIt)
{
    const int master = openTerminal();
    const int terminal = ::ioctl(master, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    termios before = {}, after = {};
    ::tcgetattr(terminal, &before);
    ::unsetenv("KITTY_WINDOW_ID");
    ::unsetenv("TERM_PROGRAM");
    const auto detect = [&](const char* type, const std::string& answer) {
        ::setenv("TERM", type, 1);
        EXPECT_EQ(::write(master, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
        return detectTerminalGraphics(terminal);
    };
    EXPECT_EQ(detect("xterm", "typed\033[?64;1;4c"), TerminalGraphics::Sixel);
    EXPECT_EQ(detect("xterm", "\033[?4;44;6c"), TerminalGraphics::Blocks);
    EXPECT_EQ(detect("xterm", ""), TerminalGraphics::Blocks) << "after half a second";
    EXPECT_EQ(detect("xterm-kitty", ""), TerminalGraphics::Kitty);
    ::ioctl(terminal, TCXONC, TCOOFF); // stopped, as by Ctrl-S
    EXPECT_EQ(detect("xterm", ""), TerminalGraphics::Blocks);
    ::tcgetattr(terminal, &after);
    EXPECT_EQ(before.c_lflag, after.c_lflag);
    EXPECT_EQ(before.c_cc[VMIN], after.c_cc[VMIN]);
    ::close(terminal);
    ::close(master);
}

// Ink as it is on an image, at most as wide as the text.
TEST(StrokeFont, CharactersDifferAndStayInTheirWidth)
{
    std::string all;
    for (char c = '!'; c <= '~'; ++c)
        all += c;
    Strings characters = {"\u00b0", "\u00b1", "\u00b2", "\u00b3", "\u00b5", "\u00d7", "\u2212", "\u263a"};
    for (const char c : all)
        characters.emplace_back(1, c);
    for (const double height : {12.0, 31.5}) {
        std::set<std::vector<std::uint8_t>> pictures;
        double width = 0;
        for (const std::string& text : characters) {
            const std::size_t advance = textWidth(text, height);
            width += text.size() == 1 ? static_cast<double>(advance) : 0;
            Image image(advance + 40, 80, {});
            drawText(image, 20, 40, text, height, {255, 255, 255});
            std::vector<std::uint8_t> ink;
            for (std::size_t y = 0; y < image.height(); ++y)
                for (std::size_t x = 0; x < image.width(); ++x) {
                    ink.push_back(image.row(y)[x].red);
                    const double above = 40 - static_cast<double>(y);
                    const bool isInside =
                        x >= 20 && x < 20 + advance && above <= height * 0.8 && above > -height * 0.4;
                    EXPECT_TRUE(isInside || ink.back() <= 80) << text << ' ' << x << ' ' << above;
                }
            EXPECT_GE(*std::max_element(ink.begin(), ink.end()), 200) << text;
            EXPECT_TRUE(pictures.insert(ink).second) << text;
        }
        EXPECT_EQ(textWidth(all, height), width);
        EXPECT_EQ(textWidth("0000", height), textWidth("1279", height));
    }
    // Outside of the image, of any size: nothing happens, soon.
    Image image(4, 4, {});
    drawText(image, 1e300, -1e300, "far", 1e300, {255, 0, 0});
    drawLine(image, nan, 0, 1, 1, 1, {255, 0, 0});
    EXPECT_EQ(image.pixels()[5], Color());
    drawLine(image, -1e300, 2.5, 1e300, 2.5, 1, {255, 0, 0, 128});
    EXPECT_EQ(image.row(2)[1], (Color{128, 0, 0}));
    EXPECT_EQ(image.row(1)[1], Color());
}

}} // namespace Quillmoran::Testing
