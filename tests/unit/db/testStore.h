// A database in a folder of its own, spoken to in short words.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "db/database.h"
#include "faultyFiles.h"
#include "unit/capture.h"

struct TestStore {
    TestStore() {
        faults = {};
        std::string pattern = (std::filesystem::temp_directory_path() / "storeTest-XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~TestStore() {
        faults = {};
        db.reset();
        std::filesystem::remove_all(folder);
    }
    TestStore(const TestStore&) = delete;
    TestStore& operator=(const TestStore&) = delete;

    static std::string read(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    // No text, no file.
    static void write(const std::string& path, const std::string& text) {
        std::filesystem::remove(path);
        if (!text.empty())
            std::ofstream(path, std::ios::binary) << text;
    }
    std::string livePath() const { return folder + "/var/deep/live.txt"; }
    std::string live() const { return read(livePath()); }

    // Starts the database, or restarts it on new factory files. Returns what it logged.
    std::string open() {
        write(folder + "/defaults.txt", defaults);
        write(folder + "/templates.txt", templates);
        return outputOf([&] {
            db.reset();
            const ostrelDbCfg cfg{mayCreate, false};
            db = std::make_unique<store::Database>(
                &cfg, store::Paths{folder + "/defaults.txt", livePath(), folder + "/templates.txt"}, *files);
        });
    }

    long handle() const { return db->dataStartWriteTransaction(); }
    bool commit() { return db->dataCommit(handle()) == 0; }
    bool put(const std::string& name, unsigned int index, const std::string& bytes, ostrelValueType type) {
        const auto* value = reinterpret_cast<const unsigned char*>(bytes.data());
        const int size = static_cast<int>(bytes.size());
        return (index == 0 ? db->createElement(handle(), name.c_str(), size, value, type)
                           : db->reWriteElement(handle(), name.c_str(), index, size, value, type)) != -1;
    }
    bool set(const std::string& name, uint32_t number, unsigned int index = 0) {
        return put(name, index, store::makeDword(number).bytes, ostrelTypeDword);
    }
    bool erase(const std::string& name) { return db->destroyElement(handle(), name.c_str()) != -1; }
    // The new instance's primary key; 0 when it is refused.
    unsigned int make(const std::string& templateName, const std::string& name, unsigned int owner = 0) {
        unsigned int key = 0;
        db->instanciateTmplt(handle(), templateName.c_str(), name.c_str(), owner, &key);
        return key;
    }
    bool remove(const std::string& name, std::vector<unsigned int> keys) {
        return db->removeInstance(handle(), name.c_str(), keys.data(), static_cast<int>(keys.size())) != -1;
    }

    // A number in decimal, a text as it is, "none" when there is no such value.
    std::string get(const std::string& name, unsigned int index = 0) const {
        ostrelValueType type = ostrelTypeNone;
        if (db->getType(name.c_str(), index, &type) == -1)
            return "none";
        std::string bytes(30000, '?');
        int size = static_cast<int>(bytes.size());
        EXPECT_NE(
            db->dataRead(0, name.c_str(), type, &size, reinterpret_cast<unsigned char*>(bytes.data()), index),
            -1);
        bytes.resize(static_cast<size_t>(size));
        if (type == ostrelTypeDword)
            return std::to_string(store::dwordOf({bytes, type}));
        return store::isText(type) ? bytes.substr(0, bytes.size() - 1)
                                   : std::to_string(static_cast<unsigned char>(bytes.at(0)));
    }
    // Of words like "name" and "name[3]" the values, of "name@7" the primary keys that owner 7 has.
    std::string values(const std::string& keys) const {
        std::istringstream words(keys);
        std::string result;
        for (std::string word; words >> word;) {
            const size_t at = std::min(word.find_first_of("[@"), word.size());
            const std::string name = word.substr(0, at);
            const auto number =
                static_cast<unsigned int>(at < word.size() ? std::stoul(word.substr(at + 1)) : 0);
            result += result.empty() ? "" : " ";
            result += at < word.size() && word[at] == '@' ? list(name, number) : get(name, number);
        }
        return result;
    }
    std::string list(const std::string& name, unsigned int owner) const {
        unsigned int keys[10];
        int count = 10;
        EXPECT_EQ(db->getInstances(name.c_str(), owner, keys, &count), 0);
        std::string result;
        for (int i = 0; i < count; ++i)
            result += (i != 0 ? "," : "") + std::to_string(keys[i]);
        return result;
    }

    std::string folder;
    std::string defaults;
    std::string templates;
    bool mayCreate = false;
    const store::FileCalls* files = &faultyFiles;
    std::unique_ptr<store::Database> db;
};

inline size_t lineCount(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}
