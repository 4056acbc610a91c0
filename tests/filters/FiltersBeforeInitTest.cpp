#include "support/Errors.h"
#include "support/Layouts.h"
#include <vxunpack/HilbertOrder.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/QuantizeFilter.h>
#include <vxunpack/SimpleFilterFilter.h>

#include <gtest/gtest.h>

namespace Quillmoran {
namespace {

TEST(Filters, RefuseQueriesBeforeInit)
{
    const Scoped<PointSource> filters[] = {
        Scoped<PointSource>(SimpleFilterFilter::create()), Scoped<PointSource>(QuantizeFilter::create()),
        Scoped<PointSource>(HilbertOrder::create()), Scoped<PointSource>(MosaicFilter::create())};
    for (const auto& filter : filters) {
        const auto codeOf = [&](auto call) { return Testing::failureOf(call).substr(0, 5); };
        Metadata metadata;
        const std::ptrdiff_t index = &filter - filters;
        EXPECT_EQ(codeOf([&] { filter->getTotalWork(Bounds::Huge(), 1); }), "40007") << index;
        EXPECT_EQ(codeOf([&] { filter->loadMetadata(metadata, false); }), "40007") << index;
        EXPECT_EQ(codeOf([&] { filter->createIterator(Bounds::Huge(), 1, Testing::layoutXYZ(), nullptr); }),
                  "40007")
            << index;
    }
}

} // namespace
} // namespace Quillmoran
