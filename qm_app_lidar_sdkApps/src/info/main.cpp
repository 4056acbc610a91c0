#include "info/Inspector.h"
#include "utils/Program.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram([argc, argv] {
        Quillmoran::Inspector inspector;
        inspector.parse(argc, argv);
        return inspector.run();
    });
}
