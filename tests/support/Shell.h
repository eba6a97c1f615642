#ifndef TESTS_SUPPORT_SHELL_H
#define TESTS_SUPPORT_SHELL_H

#include <array>
#include <cstdio>
#include <string>

/// The standard output of a shell command.
inline std::string output(const std::string& command)
{
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 256> buffer;
    while (fgets(buffer.data(), buffer.size(), pipe))
        text += buffer.data();
    pclose(pipe);
    return text;
}

#endif
