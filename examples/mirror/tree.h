// What lies in a tree, and whether a copy is equal to it.
#pragma once

#include <string>
#include <vector>

#include "progress.h"

struct Node {
    enum Kind { file, folder, soft_link };

    Kind kind;
    std::string path;  // below the top, empty for the top itself
    double size;       // bytes, of a file
};

struct Tree {
    std::vector<Node> nodes;  // a folder stands before what is in it
    double files = 0, folders = 0, links = 0, bytes = 0;
};

// Links are listed, not followed, but for the top.
Tree ListTree(const std::string &top);

// The path of a node below the top.
std::string Below(const std::string &top, const std::string &path);

// Compares every file by size and checksum, and links by their text, or, when they were left out, by their
// absence. Answers what differs, empty when nothing does.
std::string Difference(const Tree &tree, const std::string &from, const std::string &to, bool links_kept,
                       Progress &progress);
