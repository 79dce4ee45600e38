// A file system in memory that knows what a power cut may leave of it: of each file and folder what was
// forced, and of the changes since then any that a disk may have made.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "db/files.h"

class SimulatedDisk {
public:
    SimulatedDisk() { names_["/"] = forcedNames_["/"] = std::make_shared<Node>(Node{.isFolder = true}); }

    // What a power cut may leave, each as a disk of its own. Of a long write not every cut is tried.
    void forEachCut(const std::function<void(const SimulatedDisk&)>& use) const;

    // From outside, durable at once. A file that is not there is empty, and empty is not there.
    std::string read(const std::string& path) const;
    void write(const std::string& path, const std::string& bytes);

    // Called before a change is forced; then more may be lost than just after any other change.
    std::function<void()> beforeForce;
    // The calls from first to last, counted from 1, fail with error. A failing write leaves half of its
    // bytes.
    int calls = 0;
    int first = 0;
    int last = 0;
    int error = 0;
    bool hasFailed = false;

private:
    friend struct SimulatedCalls;

    struct Change {
        size_t at = 0;
        std::string bytes{};
        bool isCut = false;  // the file ends at at
    };
    struct Node {
        bool isFolder = false;
        std::string bytes{};
        std::string forced{};
        std::vector<Change> unforced{};
    };
    using NodePtr = std::shared_ptr<Node>;
    using Names = std::map<std::string, NodePtr>;
    // Made whole or not at all; null: the name goes.
    struct Naming {
        std::string folder;
        Names names;
    };

    static void apply(const Change& change, size_t size, std::string& bytes);
    static void forEachContent(const Node& node, const std::function<void(const std::string&)>& use);
    static void apply(const Naming& naming, Names& names);
    SimulatedDisk after(const Names& names, const NodePtr& changed, const std::string& bytes) const;
    void change(Node& node, Change change);
    void rename(const std::string& path, Names names);
    void force(const NodePtr& node);

    struct Handle {
        NodePtr node;
        std::string path;
        size_t at = 0;
    };

    Names names_;
    Names forcedNames_;
    std::vector<Naming> unforcedNames_;
    std::map<int, Handle> open_;
};

// On the disk that is set.
extern SimulatedDisk* simulatedDisk;
extern const store::FileCalls simulatedFiles;
