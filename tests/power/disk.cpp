#include "power/disk.h"

#include <filesystem>
#include <stdexcept>

namespace orvane::test {

namespace {

std::string directoryOf(const std::string& path) {
    return std::filesystem::path(path).parent_path();
}

/// Without what lies in directories that are not there.
template <typename Value>
std::map<std::string, Value> reachable(const std::map<std::string, Value>& names) {
    std::map<std::string, Value> found;
    for (const auto& [path, value] : names) {  // a directory comes before what it holds
        const std::string directory = directoryOf(path);
        if (directory.empty() || found.count(directory) != 0) {
            found.emplace(path, value);
        }
    }
    return found;
}

}  // namespace

Disk::Disk(const Tree& start) {
    for (const auto& [path, content] : start) {
        Node node;
        if (content) {
            node = files_.size();
            files_.push_back({*content, content->size(), {}, {}});
        }
        names_[path] = node;
    }
    safeNames_ = names_;
}

void Disk::apply(const FileOperation& operation) {
    using Kind = FileOperation::Kind;
    switch (operation.kind) {
        case Kind::makeDirectory:
            change({"", operation.path, {}});
            break;
        case Kind::open:
            if (operation.creates) {
                files_.emplace_back();
                files_.back().modes = {operation.mode};
                change({"", operation.path, files_.size() - 1});
            }
            if (const Node node = names_.at(operation.path)) {
                fileHandles_[operation.handle] = *node;
            } else {
                directoryHandles_[operation.handle] = operation.path;
            }
            break;
        case Kind::write: {
            File& file = files_.at(fileHandles_.at(operation.handle));
            file.bytes += operation.argument;
            file.writeEnds.insert(file.bytes.size());
            break;
        }
        case Kind::changeMode:
            files_.at(fileHandles_.at(operation.handle)).modes.push_back(operation.mode);
            break;
        case Kind::flush:
            if (const auto handle = fileHandles_.find(operation.handle);
                handle != fileHandles_.end()) {
                File& file = files_[handle->second];
                file.safe = file.bytes.size();
                file.writeEnds.clear();
                file.modes.erase(file.modes.begin(), file.modes.end() - 1);
            } else {
                flush(directoryHandles_.at(operation.handle));
            }
            break;
        case Kind::rename:
            if (directoryOf(operation.path) != directoryOf(operation.argument)) {
                throw std::logic_error("renamed across directories");
            }
            change({operation.path, operation.argument, names_.at(operation.path)});
            break;
        case Kind::remove:
            change({operation.path, "", {}});
            break;
    }
}

namespace {

template <typename Names, typename Change>
void perform(const Change& change, Names& names) {
    if (!change.goes.empty()) {
        names.erase(change.goes);
    }
    if (!change.comes.empty()) {
        names[change.comes] = change.node;
    }
}

}  // namespace

void Disk::change(const Change& change) {
    perform(change, names_);
    unsafe_.push_back(change);
}

void Disk::flush(const std::string& path) {
    std::erase_if(unsafe_, [&](const Change& change) {
        const bool isThere = directoryOf(change.goes.empty() ? change.comes : change.goes) == path;
        if (isThere) {
            perform(change, safeNames_);
        }
        return isThere;
    });
}

std::set<unsigned> Disk::possibleModes(const std::string& path) const {
    std::set<unsigned> modes;
    const auto add = [&](const std::string& name, const Node& node) {
        if (name == path && node) {
            modes.insert(files_[*node].modes.begin(), files_[*node].modes.end());
        }
    };
    for (const Names* names : {&safeNames_, &names_}) {
        for (const auto& [name, node] : *names) {
            add(name, node);
        }
    }
    for (const Change& change : unsafe_) {
        add(change.comes, change.node);
    }
    return modes;
}

Tree Disk::now() const {
    Tree tree;
    for (const auto& [path, node] : reachable(names_)) {
        tree[path] = node ? std::optional(files_[*node].bytes) : std::nullopt;
    }
    return tree;
}

std::vector<std::string> Disk::possibleContents(const File& file, Detail detail) {
    constexpr std::size_t lots = 128;
    const std::size_t size = file.bytes.size();
    const std::size_t fresh = size - file.safe;
    if (fresh == 0) {
        return {file.bytes};
    }
    std::set<std::size_t> lengths = file.writeEnds;
    if (detail == Detail::all && fresh <= lots) {
        for (std::size_t length = file.safe; length <= size; ++length) {
            lengths.insert(length);
        }
    } else {
        lengths.insert({file.safe, file.safe + 1, file.safe + fresh / 2, size - 1, size});
    }
    std::vector<std::string> contents{file.bytes.substr(0, file.safe) + std::string(fresh, '\0')};
    for (const std::size_t length : lengths) {
        contents.push_back(file.bytes.substr(0, length));
    }
    return contents;
}

void Disk::addTrees(const Names& names, Detail detail, std::set<Tree>& trees) const {
    std::vector<Tree> found(1);
    for (const auto& [path, node] : reachable(names)) {
        std::vector<Tree> longer;
        const auto contents =
            node ? possibleContents(files_[*node], detail) : std::vector<std::string>(1);
        for (const Tree& tree : found) {
            for (const std::string& content : contents) {
                longer.push_back(tree);
                longer.back()[path] = node ? std::optional(content) : std::nullopt;
            }
        }
        found = std::move(longer);
    }
    trees.insert(found.begin(), found.end());
}

std::set<Tree> Disk::afterPowerLoss(Detail detail) const {
    constexpr std::size_t most = 16;  // there are 2^n combinations
    if (unsafe_.size() > most) {
        throw std::logic_error("too many changes without a flush");
    }
    std::set<Tree> trees;
    for (std::size_t chosen = 0; chosen < std::size_t{1} << unsafe_.size(); ++chosen) {
        Names names = safeNames_;
        for (std::size_t i = 0; i < unsafe_.size(); ++i) {
            if ((chosen >> i & 1) != 0) {
                perform(unsafe_[i], names);
            }
        }
        addTrees(names, detail, trees);
    }
    return trees;
}

}  // namespace orvane::test
