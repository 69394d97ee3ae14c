#pragma once

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

/// Stands in for the buffer of std::cout while it lives and keeps what came between one flush and the next.
/// What is written with stdio does not come here.
class FlushedOutput : public std::stringbuf {
public:
    FlushedOutput() : m_pFormer(std::cout.rdbuf(this)) {}
    ~FlushedOutput() override { std::cout.rdbuf(m_pFormer); }
    FlushedOutput(const FlushedOutput&) = delete;
    FlushedOutput& operator=(const FlushedOutput&) = delete;

    /// The text of each flush; what has not been flushed yet is not among them.
    std::vector<std::string> pieces;

protected:
    int sync() override {
        pieces.push_back(str());
        str(std::string());
        return 0;
    }

private:
    std::streambuf* m_pFormer;
};
