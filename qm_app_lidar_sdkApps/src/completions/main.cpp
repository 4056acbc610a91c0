// vx_completions: writes the completion scripts of all programs, when they are built.
//
//   vx_completions DIRECTORY     DIRECTORY/bash/NAME, zsh/_NAME and fish/NAME.fish
#include "completions/CompletionScripts.h"
#include "diff/Differ.h"
#include "info/Inspector.h"
#include "pack/Packer.h"
#include "tileindex/TileIndexer.h"
#include "transcode/Transcoder.h"
#include "view/Viewer.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

int main(int argc, char** argv)
{
    using namespace Quillmoran;
    if (argc != 2) {
        std::fprintf(stderr, "usage: vx_completions DIRECTORY\n");
        return 1;
    }
    std::vector<std::unique_ptr<Program>> programs;
    programs.push_back(std::make_unique<Transcoder>());
    programs.push_back(std::make_unique<Packer>());
    programs.push_back(std::make_unique<Inspector>());
    programs.push_back(std::make_unique<Differ>());
    programs.push_back(std::make_unique<TileIndexer>());
    programs.push_back(std::make_unique<Viewer>());

    bool succeeded = true;
    const auto write = [&](const std::filesystem::path& path, const std::string& text) {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream file(path, std::ios::binary);
        file << text;
        succeeded = succeeded && file.flush();
    };
    const std::filesystem::path directory = argv[1];
    for (const auto& program : programs) {
        const QMCmdLine& commandLine = program->getCmdLine();
        const std::string name = commandLine.getAppName();
        write(directory / "bash" / name, CompletionScripts::forBash(commandLine));
        write(directory / "zsh" / ('_' + name), CompletionScripts::forZsh(commandLine));
        write(directory / "fish" / (name + ".fish"), CompletionScripts::forFish(commandLine));
    }
    if (!succeeded)
        std::fprintf(stderr, "vx_completions: cannot write to '%s'\n", argv[1]);
    return succeeded ? 0 : 1;
}
