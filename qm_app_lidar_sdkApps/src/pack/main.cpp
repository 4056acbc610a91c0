#include "pack/Packer.h"
#include "utils/Program.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram([argc, argv] {
        Quillmoran::Packer packer;
        packer.parse(argc, argv);
        packer.run();
        return true;
    });
}
