#include "transcode/Transcoder.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram<Quillmoran::Transcoder>(argc, argv);
}
