// Any cloud with any options of the writer: the file must restore every bit.
#include "support/FuzzTarget.h"
#include "support/RandomCloud.h"
#include "support/ReadPoints.h"

namespace Quillmoran::Fuzz {

std::uint64_t runPack(Input input)
{
    Random random(input);
    const EncodeOptions options = randomOptions(random);
    const std::size_t count = random.below(250);
    const auto cloud = makeRandomCloud(random, count, 4);
    require(readAll(*openFile(packWith(*cloud, options))) == readAll(*cloud), "points do not come back");
    constexpr std::uint64_t trials = 64; // codes and sizes that the writer tries
    return trials * count * cloud->getPointInfo().getNumChannels();
}

} // namespace Quillmoran::Fuzz
