#pragma once
// A keyed, ordered list of work items (the manual list). Positions count from 1; the key
// of an entry is its Reference, and no two entries may share one.
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "hours/CLogProcessEntry.h"

class CProcessEntryList {
 public:
  static constexpr int32_t kErrInvalidCall = 5;     // a key that isn't there
  static constexpr int32_t kErrSubscript = 9;       // an index that isn't there
  static constexpr int32_t kErrDuplicateKey = 457;  // a key that is there already

  using Entries = std::vector<std::shared_ptr<CLogProcessEntry>>;

  // A new entry holding oLog itself, a Copy of oHourInf, a copy of oLogInfo and the
  // action, inserted at lPosition (see Insert). Returns it.
  std::shared_ptr<CLogProcessEntry> Add(eAction eAct, const std::shared_ptr<CLog>& oLog, const CHourlyInf& oHourInf,
                                        const LogInfo& oLogInfo, int32_t lPosition = -1);
  // -1 appends; 1 to Count puts the entry before the one at that position; Count + 1
  // appends too. Any other position raises kErrSubscript, a key that is there already
  // raises kErrDuplicateKey, a null entry kErrInvalidCall; the list is then unchanged.
  void Insert(const std::shared_ptr<CLogProcessEntry>& oEntry, int32_t lPosition = -1);

  int32_t Count() const { return static_cast<int32_t>(m_aEntries.size()); }
  // By position (raises kErrSubscript outside 1 to Count) or by key (raises
  // kErrInvalidCall for a key that isn't there).
  std::shared_ptr<CLogProcessEntry> Item(int32_t lIndex) const;
  std::shared_ptr<CLogProcessEntry> Item(const std::string& sKey) const;
  // A position or key that isn't there is ignored.
  void Remove(int32_t lIndex);
  void Remove(const std::string& sKey);

  // The entries in list order.
  Entries NewEnum() const { return m_aEntries; }
  Entries::const_iterator begin() const { return m_aEntries.begin(); }
  Entries::const_iterator end() const { return m_aEntries.end(); }

 private:
  // Position (from 0) of the entry with the key, or -1.
  int32_t Find(const std::string& sKey) const;

  Entries m_aEntries;
  std::vector<std::string> m_aKeys;  // the key of each entry, as it was inserted
  std::unordered_set<std::string> m_oKeys;
};
