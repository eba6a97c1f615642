#ifndef TESTS_CHAOS_FILES_H
#define TESTS_CHAOS_FILES_H

#include "tests/chaos/Plan.h"

#include <map>
#include <string>

/// Settings files in the hands of somebody else.
class Files
{
public:
    Files() = default;
    ~Files(); ///< lets go of the FIFOs; what is there stays
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    /// Whatever was there is replaced.
    void put(const std::string& path, FileForm form);

private:
    void release(const std::string& path);

    std::map<std::string, int> m_writers; // of FIFOs, by path
};

/// A folder for the beginning of PATH: an xinput that keeps its complaints to itself, as Xvfb lacks most properties.
void makeQuietXinput(const std::string& folder);

#endif
