#include <vxunpack/Object.h>

#include "support/Test.h"

namespace Quillmoran::Testing { namespace {

struct Probe final : Object
{
    explicit Probe(int& live) : m_live(live) { ++m_live; }
    ~Probe() override { --m_live; }
    int& m_live;
};

TEST(Scoped, OwnsOneCountEachAndDestroysWithTheLast)
{
    int live = 0;
    Scoped<Probe> first(new Probe(live));
    Scoped<Probe> second(first);
    const Scoped<Probe> moved(std::move(first)), retained = Scoped<Probe>::retained(second.get());
    EXPECT_EQ(moved->retain(), 4);
    EXPECT_EQ(moved->release(), 3);
    second.reset(new Probe(live));
    EXPECT_EQ(live, 2);
    second = moved; // releases the other object
    second = *&second;
    EXPECT_EQ(live, 1);
    EXPECT_EQ(second.detach()->release(), 2);
    Scoped<Probe> last(new Probe(live));
    EXPECT_EQ(last.detach()->release(), 0);
    EXPECT_EQ(live, 1);
}

}} // namespace Quillmoran::Testing
