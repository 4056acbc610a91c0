#include "pack/Packer.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram<Quillmoran::Packer>(argc, argv);
}
