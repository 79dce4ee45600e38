// A database on a simulated disk, spoken to in short words.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "common/ostrelUtils.h"
#include "db/database.h"
#include "db/logFormat.h"
#include "simulatedDisk.h"
#include "unit/capture.h"

constexpr char liveFile[] = "/vemra/var/live.txt";

struct TestStore {
    TestStore() { SimulatedDisk::current = &disk; }
    ~TestStore() {
        SimulatedDisk::current = &disk;
        db.reset();
        SimulatedDisk::current = outer_;
        ostrelSetPrintLevel(outer_ != nullptr ? 0 : 7);
    }
    TestStore(const TestStore&) = delete;
    TestStore& operator=(const TestStore&) = delete;

    // The live file without its room.
    std::string live() const {
        const std::string text = disk.read(liveFile);
        const store::LogScan scan = store::scanLog(text);
        return scan.end == store::LogScan::End::whole ? text.substr(0, scan.goodBytes) : text;
    }

    // Starts the database, or restarts it on new factory files.
    void start() {
        ++starts;
        disk.write("/defaults.txt", defaults);
        disk.write("/templates.txt", templates);
        db.reset();
        const ostrelDbCfg cfg{mayCreate, false};
        db = std::make_unique<store::Database>(
            &cfg, store::Paths{"/defaults.txt", liveFile, "/templates.txt"}, SimulatedDisk::files);
    }
    // Returns what it logged.
    std::string open() {
        return outputOf([this] { start(); });
    }
    std::string openOn(const std::string& text) {
        db.reset();
        disk.write(liveFile, text);
        return open();
    }
    // The live file with one more transaction: of nothing, but so long that the next commit rewrites it.
    std::string padded() const {
        std::string padding;
        for (int line = 0; line < 70; ++line)
            padding += '#' + std::string(1000, '-') + '\n';
        store::closeTransaction(padding, store::scanLog(live()).lastNumber + 1, 0);
        return live() + padding;
    }

    // With what is no transaction, and one behind that shows that it was.
    static std::string damaged(std::string log) {
        std::string later = "a Dword 9\n";
        store::closeTransaction(later, store::scanLog(log).lastNumber + 2, 0);
        return log + "@\n" + later;
    }

    long handle() const { return db->dataStartWriteTransaction(); }
    bool commit() { return db->dataCommit(handle()) == 0; }
    bool put(const std::string& name, unsigned int index, const store::Value& value) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(value.bytes.c_str());
        const int size = static_cast<int>(store::sizeOf(value));
        return (index == 0
                    ? db->createElement(handle(), name.c_str(), size, bytes, value.type)
                    : db->reWriteElement(handle(), name.c_str(), index, size, bytes, value.type)) != -1;
    }
    bool set(const std::string& name, uint32_t number, unsigned int index = 0) {
        return put(name, index, store::makeNumber(ostrelTypeDword, number));
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

    // Of type none when there is no such value.
    store::Value value(const std::string& name, unsigned int index) const {
        store::Value value;
        unsigned char bytes[8000] = {};
        int size = sizeof bytes;
        if (db->getType(name.c_str(), index, &value.type) == 0) {
            EXPECT_EQ(db->dataRead(0, name.c_str(), value.type, &size, bytes, index), 0);
            EXPECT_TRUE(store::makeValue(value.type, {bytes, static_cast<size_t>(size)}, value).ok());
        }
        return value;
    }
    // A number in decimal, a text as it is, "none" when there is no such value.
    std::string get(const std::string& name, unsigned int index) const {
        store::Value found = value(name, index);
        if (found.type == ostrelTypeNone || store::isText(found.type))
            return found.type == ostrelTypeNone ? "none" : found.bytes;
        found.bytes.resize(4);
        return std::to_string(store::numberOf(found));
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
            result += word.find('@') == at ? list(name, number) : get(name, number);
        }
        return result;
    }
    std::vector<unsigned int> primaryKeys(const std::string& name, unsigned int owner) const {
        int count = db->getVectorSize(name.c_str(), owner);
        std::vector<unsigned int> keys(static_cast<size_t>(count) + 1);
        EXPECT_EQ(db->getInstances(name.c_str(), owner, keys.data(), &count), 0);
        keys.resize(static_cast<size_t>(count));
        return keys;
    }
    std::string list(const std::string& name, unsigned int owner) const {
        std::string result;
        for (const unsigned int key : primaryKeys(name, owner))
            result += (result.empty() ? "" : ",") + std::to_string(key);
        return result;
    }

    SimulatedDisk disk;
    std::string defaults;
    std::string templates;
    bool mayCreate = false;
    int starts = 0;
    std::unique_ptr<store::Database> db;

private:
    SimulatedDisk* const outer_ = SimulatedDisk::current;
};
