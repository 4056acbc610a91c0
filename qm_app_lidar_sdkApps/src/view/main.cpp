#include "view/Viewer.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram<Quillmoran::Viewer>(argc, argv);
}
