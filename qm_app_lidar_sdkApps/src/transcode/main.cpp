#include "transcode/Transcoder.h"
#include "utils/Program.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram([argc, argv] {
        Quillmoran::Transcoder transcoder;
        transcoder.parse(argc, argv);
        transcoder.run();
        return true;
    });
}
