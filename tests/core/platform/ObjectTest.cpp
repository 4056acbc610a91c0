#include "platform/Object.h"

#include <gtest/gtest.h>

#include <thread>
#include <utility>

namespace Quillmoran {
namespace {

class Probe final : public Object
{
public:
    explicit Probe(int& live) : m_live(live) { ++m_live; }

private:
    ~Probe() override { --m_live; }
    int& m_live;
};

int countOf(const Object* object)
{
    object->retain();
    return object->release();
}

TEST(Object, IsDestroyedByTheLastRelease)
{
    int live = 0;
    const Probe* probe = new Probe(live);
    EXPECT_EQ(probe->retain(), 2);
    EXPECT_EQ(probe->release(), 1);
    EXPECT_EQ(live, 1);
    EXPECT_EQ(probe->release(), 0);
    EXPECT_EQ(live, 0);
}

TEST(Object, CountsCallsFromSeveralThreads)
{
    int live = 0;
    const Scoped<Probe> probe(new Probe(live));
    const auto work = [&] {
        for (int i = 0; i < 20000; ++i)
            countOf(probe.get());
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(countOf(probe.get()), 1);
}

TEST(Scoped, CopiesRetainAndMovesDoNot)
{
    int live = 0;
    Scoped<Probe> first(new Probe(live));
    Probe* const probe = first.get();
    Scoped<Probe> second(first);
    EXPECT_EQ(countOf(probe), 2);
    const Scoped<Probe> third(std::move(first));
    EXPECT_EQ(countOf(probe), 2);
    EXPECT_FALSE(first);
    const Scoped<Probe> fourth = Scoped<Probe>::retained(probe);
    EXPECT_EQ(countOf(probe), 3);
    second = *&second;
    EXPECT_EQ(countOf(probe), 3);
    second.reset();
    EXPECT_EQ(countOf(probe), 2);
}

TEST(Scoped, ReleasesWhatItHeldWhenReplaced)
{
    int live = 0;
    Scoped<Probe> holder(new Probe(live));
    holder.reset(new Probe(live));
    EXPECT_EQ(live, 1);
    holder = Scoped<Probe>(new Probe(live));
    EXPECT_EQ(live, 1);
    const Probe* const probe = holder.detach();
    EXPECT_FALSE(holder);
    EXPECT_EQ(live, 1);
    EXPECT_EQ(probe->release(), 0);
}

} // namespace
} // namespace Quillmoran
