#include "tileindex/TileIndexer.h"
#include "utils/Utils.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram([&] {
        Quillmoran::TileIndexer indexer;
        indexer.parse(argc, argv);
        indexer.run();
    });
}
