#include "completions/CompletionScripts.h"

#include "cli/QMCmdLine.h"
#include "utils/program/Utils.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace Quillmoran {

namespace {

using Option = QMCmdLine::OptionDescription;

// What the shell offers as the value of an option.
enum class Values
{
    None, // numbers and the like
    Choices,
    Files,
    Directories
};

Values valuesOf(const Option& option)
{
    if (!option.choices.empty())
        return Values::Choices;
    if (!option.isText)
        return Values::None;
    const char* const name =
        Utils::getArgumentName(option.longName != nullptr ? option.longName : option.shortName);
    if (name == nullptr || std::strcmp(name, "FILE") == 0)
        return Values::Files;
    return std::strcmp(name, "DIRECTORY") == 0 ? Values::Directories : Values::None;
}

// "?" needs quotes in a shell; -h is the same.
std::vector<std::string> namesOf(const Option& option)
{
    std::vector<std::string> names;
    for (const char* name : {option.shortName, option.longName})
        if (name != nullptr && std::strcmp(name, "?") != 0)
            names.emplace_back(name);
    return names;
}

// The number of arguments after the name of an option.
int argumentsOf(const Option& option)
{
    return option.isFlag ? 0 : std::max(option.numArgs, 1);
}

std::string joined(const std::vector<std::string>& words, const std::string& separator)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : separator) + word;
    return text;
}

std::string choicesOf(const Option& option)
{
    return joined({option.choices.begin(), option.choices.end()}, " ");
}

std::string replaced(const std::string& text, char letter, const std::string& replacement)
{
    std::string result;
    for (const char c : text)
        result += c == letter ? replacement : std::string(1, c);
    return result;
}

// A comment at the beginning of each script.
std::string origin(const std::string& program)
{
    return "# Completes the command line of " + program + ". Generated from the options of the program.\n";
}

} // namespace

std::string CompletionScripts::forBash(const QMCmdLine& program)
{
    const std::string name = program.getAppName();
    std::vector<std::string> offered;
    std::string cases; // set the number of arguments after the name of an option, and their values
    for (const Option& option : program.describeOptions()) {
        std::vector<std::string> patterns;
        for (const std::string& optionName : namesOf(option)) {
            offered.push_back('-' + optionName);
            patterns.push_back('-' + optionName);
            if (program.hasExtendedSyntax() && optionName.size() > 1)
                patterns.push_back("--" + optionName);
        }
        if (option.isFlag)
            continue;
        const Values values = valuesOf(option);
        const std::string text = values == Values::Files         ? "(files)"
                                 : values == Values::Directories ? "(directories)"
                                                                 : choicesOf(option);
        cases += "            " + joined(patterns, " | ") + ") left=" + std::to_string(argumentsOf(option)) +
                 " values='" + text + "' ;;\n";
    }
    return origin(name) + "_" + name + R"(()
{
    local current=${COMP_WORDS[COMP_CWORD]} word i left=0 values= plain=
    COMPREPLY=()
    [[ $current != = ]] || current=
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        [[ $word != = ]] || continue # of --option=value
        if ((left > 0)); then
            ((left -= 1))
            continue
        fi
        [[ -z $plain ]] || continue
        case $word in
            --) plain=yes ;;
)" + cases +
           R"(        esac
    done
    # Without any offer, readline completes names of files.
    if ((left > 0)); then
        case $values in
            '(files)') ;;
            '(directories)') compopt +o default -o dirnames ;;
            *)
                compopt +o default
                mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
                ;;
        esac
    elif [[ -z $plain && $current == -* ]]; then
        local names=")" +
           joined(offered, " ") + R"("
)" + (program.hasExtendedSyntax() ? "        [[ $current != --* ]] || names=\" ${names// -/ --}\"\n" : "") +
           R"(        mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
    fi
}
complete -o default -F _)" +
           name + ' ' + name + '\n';
}

std::string CompletionScripts::forZsh(const QMCmdLine& program)
{
    const std::string name = program.getAppName();
    std::string script = "#compdef " + name + '\n' + origin(name) + "_arguments -S \\\n";
    for (const Option& option : program.describeOptions()) {
        std::string summary = option.summary;
        for (const auto& [letter, escaped] :
             {std::pair('\\', "\\\\"), {'[', "\\["}, {']', "\\]"}, {':', "\\:"}, {'\'', "'\\''"}})
            summary = replaced(summary, letter, escaped);
        std::string value;
        switch (valuesOf(option)) {
        case Values::None:
            value = " ";
            break;
        case Values::Choices:
            value = '(' + choicesOf(option) + ')';
            break;
        case Values::Files:
            value = "_files";
            break;
        case Values::Directories:
            value = "_directories";
            break;
        }
        std::string arguments;
        for (int i = 0; i < argumentsOf(option); ++i)
            arguments += ":value:" + value;
        for (const std::string& optionName : namesOf(option))
            script.append("  '*-")
                .append(optionName)
                .append("[")
                .append(summary)
                .append("]")
                .append(arguments)
                .append("' \\\n");
    }
    return script + (program.hasExtraArguments() ? "  '*:file:_files'\n" : "  && return\n");
}

std::string CompletionScripts::forFish(const QMCmdLine& program)
{
    const std::string name = program.getAppName();
    std::string script = origin(name);
    if (!program.hasExtraArguments())
        script += "complete -c " + name + " -f\n";
    for (const Option& option : program.describeOptions()) {
        script += "complete -c " + name;
        // Not as a short option (-s): "-or" would be -o with the value "r".
        for (const std::string& optionName : namesOf(option))
            script += " -o " + optionName;
        script += " -d '" + replaced(replaced(option.summary, '\\', "\\\\"), '\'', "\\'") + '\'';
        if (!option.isFlag)
            switch (valuesOf(option)) {
            case Values::None:
                script += " -x";
                break;
            case Values::Choices:
                script += " -x -a '" + choicesOf(option) + '\'';
                break;
            case Values::Files:
                script += " -r -F";
                break;
            case Values::Directories:
                script += " -x -a '(__fish_complete_directories)'";
                break;
            }
        script += '\n';
    }
    return script;
}

} // namespace Quillmoran
