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
    void rollback() { EXPECT_EQ(db->dataWriteRollback(handle()), 0); }

    bool put(const std::string& name, unsigned int index, const std::string& bytes, ostrelValueType type) {
        const auto* value = reinterpret_cast<const unsigned char*>(bytes.data());
        const int size = static_cast<int>(bytes.size());
        const int result = index == 0 ? db->createElement(handle(), name.c_str(), size, value, type)
                                      : db->reWriteElement(handle(), name.c_str(), index, size, value, type);
        return result != -1;
    }
    bool set(const std::string& name, uint32_t number, unsigned int index = 0) {
        return put(name, index, store::makeDword(number).bytes, ostrelTypeDword);
    }
    bool setText(const std::string& name, const std::string& text, unsigned int index = 0) {
        return put(name, index, text + '\0', ostrelTypeString);
    }
    bool erase(const std::string& name) { return db->destroyElement(handle(), name.c_str()) != -1; }
    // The new instance's primary key; 0 when it is refused.
    unsigned int make(const std::string& templateName, const std::string& name, unsigned int owner = 0) {
        unsigned int key = 0;
        const int result = db->instanciateTmplt(handle(), templateName.c_str(), name.c_str(), owner, &key);
        return result != -1 ? key : 0;
    }
    bool remove(const std::string& name, std::vector<unsigned int> keys) {
        return db->removeInstance(handle(), name.c_str(), keys.data(), static_cast<int>(keys.size())) != -1;
    }
    bool removeOwned(const std::string& name, unsigned int owner) {
        return db->removeInstances(handle(), name.c_str(), owner) != -1;
    }

    std::string get(const std::string& name, unsigned int index = 0, long handle = 0) const {
        for (unsigned int number = ostrelTypeBool; number <= ostrelTypeString; ++number) {
            const auto type = static_cast<ostrelValueType>(number);
            std::string bytes(30000, '?');
            int size = static_cast<int>(bytes.size());
            auto* buffer = reinterpret_cast<unsigned char*>(bytes.data());
            if (db->dataRead(handle, name.c_str(), type, &size, buffer, index) == -1)
                continue;
            bytes.resize(static_cast<size_t>(size));
            if (type == ostrelTypeDword)
                return std::to_string(store::dwordOf({bytes, type}));
            if (!store::isText(type))
                return std::to_string(static_cast<unsigned char>(bytes.at(0)));
            EXPECT_EQ(bytes.back(), '\0');
            bytes.pop_back();
            return bytes;
        }
        return "none";
    }
    // The values of keys such as "name" and "name[3]", joined by blanks: a number in decimal, a text as it
    // is, "none" when there is no such value.
    std::string values(const std::string& keys, long handle = 0) const {
        std::istringstream words(keys);
        std::string result;
        for (std::string key; words >> key;) {
            const size_t bracket = key.find('[');
            const unsigned long index =
                bracket != std::string::npos ? std::stoul(key.substr(bracket + 1)) : 0;
            result += (result.empty() ? "" : " ") +
                      get(key.substr(0, bracket), static_cast<unsigned int>(index), handle);
        }
        return result;
    }

    std::vector<unsigned int> keys(const std::string& name, unsigned int owner = 0) const {
        std::vector<unsigned int> result(100);
        int count = static_cast<int>(result.size());
        EXPECT_EQ(db->getInstances(name.c_str(), owner, result.data(), &count), 0);
        EXPECT_EQ(db->getVectorSize(name.c_str(), owner), count);
        result.resize(static_cast<size_t>(count));
        return result;
    }

    std::string folder;
    std::string defaults;
    std::string templates;
    bool mayCreate = false;
    const store::FileCalls* files = &faultyFiles;
    std::unique_ptr<store::Database> db;
};

using Keys = std::vector<unsigned int>;

inline size_t lineCount(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}
