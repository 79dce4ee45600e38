// Writes. They ask first whether the running entry may write, so none of them ends the daemon: where it may
// not, they return false and say so in the log.
#ifndef OSTREL_PLUGIN_CHANGE_HPP
#define OSTREL_PLUGIN_CHANGE_HPP

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "ostrel/plugin/knownLines.hpp"
#include "ostrel/plugin/read.hpp"

#pragma GCC visibility push(hidden)
namespace ostrel::plugin {

namespace detail {

inline bool writeAllowed() {
    if (mayWrite())
        return true;
    logError(phase() == Phase::writeConf ? knownLine::writeLeftOut
                                         : "a write outside of the entries is left out");
    return false;
}

}  // namespace detail

// Values that are written in one transaction, or not at all.
class Change {
public:
    Change() : list_(OstrelValues_Create()) {
        if (!list_)
            throw std::bad_alloc();
    }

    // A key of its own index 0, an element of a vector or an instance's member by its index. The setters
    // throw std::bad_alloc.
    Change& setBool(const std::string& key, bool value, unsigned int index = 0) {
        OstrelValues_Add_Bool(list_.get(), key.c_str(), value ? 1 : 0);
        return place(index);
    }
    Change& setByte(const std::string& key, uint8_t value, unsigned int index = 0) {
        OstrelValues_Add_Byte(list_.get(), key.c_str(), value);
        return place(index);
    }
    Change& setDword(const std::string& key, uint32_t value, unsigned int index = 0) {
        OstrelValues_Add_Dword(list_.get(), key.c_str(), value);
        return place(index);
    }
    Change& setString(const std::string& key, const std::string& text, unsigned int index = 0) {
        OstrelValues_Add_String(list_.get(), key.c_str(), text.c_str());
        return place(index);
    }
    Change& setIp(const std::string& key, const std::string& text, unsigned int index = 0) {
        OstrelValues_Add_IP(list_.get(), key.c_str(), text.c_str());
        return place(index);
    }
    Change& setMac(const std::string& key, const std::string& text, unsigned int index = 0) {
        OstrelValues_Add_MAC(list_.get(), key.c_str(), text.c_str());
        return place(index);
    }

    // True when it is written or, where writes wait, stored.
    bool write() { return detail::writeAllowed() && OstrelClientWriteValues(list_.get()) == 1; }
    // The same, but nothing is written when the database holds all these values already: what a restart does
    // that keeps one of its plug-in's own watched keys up to date, since each write there calls it again.
    bool writeIfDifferent() { return isCurrent() || write(); }

private:
    struct Destroy {
        void operator()(OstrelValues* list) const { OstrelValues_Destroy(list); }
    };

    // The list says only by its count that there was no memory.
    Change& place(unsigned int index) {
        if (list_->count == placed_)
            throw std::bad_alloc();
        list_->values[placed_++]->pKey = index;
        return *this;
    }

    bool isCurrent() const {
        for (int i = 0; i < list_->count; ++i) {
            const OstrelValue& value = *list_->values[i];
            if (typeOf(value.name, value.pKey) != value.type)
                return false;
            const std::string wanted(reinterpret_cast<const char*>(value.value), value.size);
            if (detail::readBytes(value.name, value.pKey, value.type) != wanted)
                return false;
        }
        return true;
    }

    std::unique_ptr<OstrelValues, Destroy> list_;
    int placed_ = 0;
};

// Makes an instance of the template under the structure's name, for the owner with the tag.
inline bool makeInstance(const std::string& templateName, const std::string& structure, const char* owner) {
    return detail::writeAllowed() && ostrelClientInstanciateStructure(templateName.c_str(), structure.c_str(),
                                                                      ostrelStringToOwner(owner)) == 1;
}
// Removes an instance of a structure or an element of a vector.
inline bool removeInstance(const std::string& name, unsigned int index) {
    return detail::writeAllowed() && OstrelClientDeinstanciate(name.c_str(), index) == 1;
}
// Removes all instances that belong to the owner with the tag; none is no failure.
inline bool removeInstances(const std::string& structure, const char* owner) {
    return detail::writeAllowed() &&
           OstrelClientDeinstanciateOwner(structure.c_str(), ostrelStringToOwner(owner)) == 1;
}

}  // namespace ostrel::plugin
#pragma GCC visibility pop

#endif
