#include "support/FuzzTarget.h"

#include "support/Limits.h"
#include <vxunpack/Base.h>

#include <map>
#include <tbb/global_control.h>

namespace Quillmoran::Fuzz {

bool handlesInput(const std::string& target, Input input)
{
    static const std::map<std::string, std::uint64_t (*)(Input)> targets = {{"commandline", runCommandLine},
                                                                            {"container", runContainer},
                                                                            {"las", runLAS},
                                                                            {"list", runList},
                                                                            {"metadata", runMetadata},
                                                                            {"pack", runPack},
                                                                            {"rtree", runRTree},
                                                                            {"subblocks", runSubblocks},
                                                                            {"text", runText},
                                                                            {"tileset", runTileSet}};
    // One thread, so that an input always executes the same code.
    static const tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
    const Limits limits(input.size());
    std::uint64_t samples = 0;
    bool isGood = true;
    try {
        samples = targets.at(target)(input);
    } catch (const Error&) {
        isGood = false;
    }
    limits.check(samples);
    return isGood;
}

} // namespace Quillmoran::Fuzz
