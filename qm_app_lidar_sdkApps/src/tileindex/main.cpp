#include "tileindex/TileIndexer.h"
#include "utils/Program.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram([argc, argv] {
        Quillmoran::TileIndexer indexer;
        indexer.parse(argc, argv);
        indexer.run();
        return true;
    });
}
