// Human-readable output: left-aligned columns under a header, two spaces apart.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace telmictl {

class Table {
public:
    explicit Table(std::vector<std::string> header);

    // A row has as many cells as the header.
    void add(std::vector<std::string> row);
    void print(FILE* out) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

// "yes" for 1, "no" otherwise: the API's 0/1 states.
const char* yesNo(int state);

}  // namespace telmictl
