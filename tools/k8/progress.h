// A progress bar on a terminal; silent anywhere else.
#pragma once

#include <string>

class Progress {
public:
    Progress(std::string task, int total);
    ~Progress();  // clears the line
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void advance();

private:
    void show() const;

    std::string task_;
    int total_, done_ = 0;
    bool isTerminal_;
};
