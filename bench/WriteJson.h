#ifndef BENCH_WRITE_JSON_H
#define BENCH_WRITE_JSON_H

#include <fstream>
#include <string>

#include <fmt/core.h>
#include <nlohmann/json.hpp>

/// Writes the figures of a program to a file; an empty name is none. \return the program's exit status
inline int writeJson(const char* program, const std::string& file, const nlohmann::ordered_json& json)
{
    if (file.empty())
        return 0;
    std::ofstream out(file);
    out << json.dump(2) << '\n';
    if (out.flush())
        return 0;
    fmt::print(stderr, "{}: cannot write {}\n", program, file);
    return 1;
}

#endif
