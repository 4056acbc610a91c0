#include "transcode/Transcoder.h"
#include "utils/Utils.h"

int main(int argc, char** argv)
{
    return Quillmoran::Utils::runProgram([&] {
        Quillmoran::Transcoder transcoder;
        transcoder.parse(argc, argv);
        transcoder.run();
    });
}
