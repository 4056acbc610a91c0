#include "tileindex/TileIndexer.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram<Quillmoran::TileIndexer>(argc, argv);
}
