#include "diff/Differ.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram<Quillmoran::Differ>(argc, argv);
}
