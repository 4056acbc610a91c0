#include "info/Inspector.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram<Quillmoran::Inspector>(argc, argv);
}
