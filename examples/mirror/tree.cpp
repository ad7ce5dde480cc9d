#include "tree.h"

#include <filesystem>

namespace {

namespace host = std::filesystem;

// The library follows links when it is asked about a node; only the host tells them.
bool IsLink(const std::string &path) {
    std::error_code ignored;
    return host::is_symlink(host::symlink_status(btkHostPath(path.c_str()), ignored));
}

std::string LinkText(const std::string &path) {
    std::error_code ignored;
    return host::read_symlink(btkHostPath(path.c_str()), ignored).string();
}

Node Ask(const std::string &top, const std::string &path) {
    const std::string whole = Below(top, path);
    if (!path.empty() && IsLink(whole)) return {Node::soft_link, path, 0};
    const xrchandle<fsNodeInfo> info = fsGetNodeInfo(whole.c_str());
    if (info->getType() == fsDirectory) return {Node::folder, path, 0};
    return {Node::file, path, info->getSize()};
}

bool IsEqual(const Node &node, const std::string &from, const std::string &to, bool links_kept,
             const kel::file_observer &observer) {
    switch (node.kind) {
        case Node::folder:
            return fshIsDirectory(to.c_str()) && !IsLink(to);
        case Node::soft_link:
            return links_kept ? IsLink(to) && LinkText(from) == LinkText(to)
                              : !IsLink(to) && !fshExists(to.c_str());
        case Node::file:
            break;
    }
    return fshIsFile(to.c_str()) && fshGetSize(to.c_str()) == node.size &&
           kel::calculate_check_sum(from.c_str(), observer) == fsCalculateCheckSum(to.c_str());
}

}  // namespace

std::string Below(const std::string &top, const std::string &path) {
    return path.empty() ? top : std::string(fsCatPaths(top.c_str(), path.c_str()));
}

Tree ListTree(const std::string &top) {
    Tree tree;
    std::vector<std::string> waiting = {""};
    while (!waiting.empty()) {
        const Node node = Ask(top, waiting.back());
        waiting.pop_back();
        tree.files += node.kind == Node::file;
        tree.folders += node.kind == Node::folder;
        tree.links += node.kind == Node::soft_link;
        tree.bytes += node.size;
        tree.nodes.push_back(node);
        if (node.kind != Node::folder) continue;
        const xrchandle<xstringsequence> names =
            fsListDirectory(Below(top, node.path).c_str(), "*", strShell);
        for (int i = 0; i < names->getarraysize(); ++i)
            waiting.push_back(node.path.empty() ? std::string(names->get(i))
                                                : std::string(fsCatPaths(node.path.c_str(), names->get(i))));
    }
    return tree;
}

std::string Difference(const Tree &tree, const std::string &from, const std::string &to, bool links_kept,
                       Progress &progress) {
    double files = 0, bytes = 0, told = 0;
    for (const Node &node : tree.nodes) {
        const std::string original = Below(from, node.path), copy = Below(to, node.path);
        const auto observer = [&](const kel::file_progress &at) {
            if (tmTime::RealTime() - told < 0.1) return;
            progress.Reach(original, files, bytes + at.bytes);
            told = tmTime::RealTime();
        };
        if (!IsEqual(node, original, copy, links_kept, observer)) return copy;
        files += node.kind == Node::file;
        bytes += node.size;
    }
    progress.Reach("", files, bytes);
    return "";
}
