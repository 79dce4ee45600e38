// The three text files and what a client then does, in one input: templates, defaults, live file and
// operations are parts of it with 1C between. In the live file 1D closes a transaction: chance finds no
// checksum.
#include <set>
#include <sstream>

#include "db/loader.h"
#include "fuzz.h"
#include "unit/db/testStore.h"

namespace {

using namespace store;

using Keys = std::set<std::pair<std::string, uint32_t>>;  // names with indices, or with owners

// What the files say, put together without the database; and all of it as text: the changes and the cells.
class Contents final : public CellVisitor, LoadReport {
public:
    // changes: whole transactions.
    Contents(const std::string& templates, const std::string& defaults, const std::string& changes) {
        loadTemplates({"", templates}, model_, *this);
        loadDefaults({"", defaults}, model_, *this);
        loadChanges({"", changes}, model_, *this);
        model_.visitChanges(writer_);
        require(writer_.lines == model_.changes() && writer_.text.size() == model_.changedBytes(),
                "the changes are as long as they count");
        model_.visitCells(*this);
    }
    void fault(const LinePlace&, LineFault, const char*) override {}
    void instance(const RowKey& key, const InstanceCell& cell) override {
        add(std::string(key.name), cell.owner, cell);
        cell.present ? writer_.instance(key, cell) : writer_.removed(key, Origin::unknown);
    }
    void cell(const RowKey& key, const Cell& cell) override {
        add(key.wholeName(), key.index, cell);
        cell.present ? writer_.value(key, cell) : writer_.erased(key, Origin::unknown);
    }
    bool operator==(const Contents& other) const { return writer_.text == other.writer_.text; }

    // Of these keys and its own, which are added.
    void expectFrom(const TestStore& store, Keys& keys) const {
        keys.insert(keys_.begin(), keys_.end());
        for (const auto& [name, number] : keys) {
            const Value* value = model_.find(name, number);
            require(store.value(name, number) == (value != nullptr ? *value : Value()),
                    "the values are those of the files");
            std::vector<unsigned int> wanted(model_.list(name, number, nullptr, 0));
            model_.list(name, number, wanted.data(), wanted.size());
            require(store.primaryKeys(name, number) == wanted, "the instances are those of the files");
        }
    }

private:
    void add(std::string name, uint32_t number, const auto& cell) {
        keys_.emplace(std::move(name), number);
        writer_.text += {cell.present ? '+' : '-', cell.hasDefault ? 'd' : ' ', cell.changed ? 'c' : ' '};
    }
    Model model_;
    LineWriter writer_;
    Keys keys_;
};

Contents contentsOf(const TestStore& store) {
    const std::string live = store.live();
    require(scanLog(live).goodBytes == live.size(), "the live file is good");
    return {store.templates, store.defaults, live};
}

// Blanks the lines that are none.
std::string withoutBadLines(std::string text) {
    forEachLine({"", text}, [&](const LinePlace& place, const Line& line, const Result& parsed) {
        if (!parsed.ok() && line.kind != Line::Kind::heading)
            text.replace(static_cast<size_t>(place.text.data() - text.data()), place.text.size(),
                         place.text.size(), ' ');
    });
    return text;
}

// Does what the line says; one that begins with @ commits, a heading rolls back. What no line of a file can
// say, a client may name and store.
void act(TestStore& store, const Line& line, const std::string& bad, Keys& keys) {
    const std::string name = bad.empty() ? line.key().wholeName() : bad;
    keys.insert({{name, 0}, {name, line.index}, {name, line.instance.owner}, {"raw", 1}});
    if (!bad.empty()) {
        store.put(bad, 0, {bad, ostrelTypeString});
        store.put("raw", 1, {bad, ostrelTypeString});
    } else if (line.kind == Line::Kind::value) {
        store.put(name, line.index, line.value);
    } else if (line.kind == Line::Kind::erased) {
        store.erase(name);
    } else if (line.kind == Line::Kind::instance) {
        store.make(line.instance.templateName, name, line.instance.owner);
    } else if (line.kind == Line::Kind::removed) {
        store.remove(name, {line.index});
    } else if (line.kind == Line::Kind::lastKey) {
        store.db->removeInstances(store.handle(), name.c_str(), line.number);
    } else if (line.kind == Line::Kind::heading) {
        store.db->dataWriteRollback(store.handle());
    } else {
        require(store.commit(), "a commit works");
    }
}

// A start, which changes nothing, and a client's work, which the files then say.
void run(TestStore& store, const Contents& before, const std::string& operations) {
    store.start();
    require(contentsOf(store) == before, "a start changes nothing");
    Keys keys;
    before.expectFrom(store, keys);
    forEachLine({"", operations}, [&](const LinePlace& place, const Line& line, const Result& parsed) {
        act(store, line, parsed.ok() ? "" : std::string(place.text).c_str(), keys);  // up to a NUL
    });
    require(store.commit(), "a commit works");
    contentsOf(store).expectFrom(store, keys);
}

// The live file of the input; its good transactions are found, before damage and behind.
std::string closeTransactions(const std::string& input) {
    std::string live;
    size_t good = 0;  // bytes at the front, closed before anything that looks like a closing line
    std::istringstream parts(input);
    uint64_t number = 0;
    for (std::string part; std::getline(parts, part, '\x1D') && !parts.eof(); live += part) {
        const bool isGood = good == live.size() && !contains('\n' + part, "\n@");
        part.append(part.empty() || part.back() == '\n' ? 0 : 1, '\n');
        closeTransaction(part, ++number, 0);
        good += isGood ? part.size() : 0;
    }
    live += input.substr(input.rfind('\x1D') + 1);
    require(scanLog(live).goodBytes >= good, "good transactions count");
    size_t end = byteOrderMarkSize(live);
    for (const LogPiece& piece : splitLog(live)) {
        require(piece.begin == end && piece.closing <= piece.end && (end >= good || piece.number != 0),
                "the pieces of a log are all of it");
        end = piece.end;
    }
    require(end == live.size(), "the pieces of a log are all of it");
    return live;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    TestStore store;
    std::string changes;
    std::string operations;
    std::istringstream parts(std::string(data, data + size));
    for (std::string* part : {&store.templates, &store.defaults, &changes, &operations})
        std::getline(parts, *part, '\x1C');
    // A missing file is another matter: changes that it may explain are not forgotten.
    for (std::string* part : {&store.templates, &store.defaults})
        part->append(part->empty() ? 1 : 0, '\n');
    std::string live = closeTransactions(changes);
    store.disk.write(liveFile, live);
    live.resize(scanLog(live).goodBytes);
    const Contents whole(store.templates, store.defaults, live);
    require(whole == Contents(withoutBadLines(store.templates), withoutBadLines(store.defaults),
                              withoutBadLines(live)),
            "a bad line costs no other");
    run(store, whole, operations);
    store.mayCreate = true;
    run(store, contentsOf(store), operations);
    const Contents created = contentsOf(store);
    const std::string damaged = TestStore::damaged(store.live());
    store.disk.write(liveFile, damaged);
    run(store, created, "");
    const std::string kept = liveFile + std::string(".damaged-");
    require(contains(store.disk.read(kept + '1') + store.disk.read(kept + '2'), damaged),
            "a damaged file is kept");
    return 0;
}
