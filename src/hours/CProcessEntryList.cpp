#include "hours/CProcessEntryList.h"

#include "support/CNVErr.h"

std::shared_ptr<CLogProcessEntry> CProcessEntryList::Add(eAction eAct, const std::shared_ptr<CLog>& oLog,
                                                         const CHourlyInf& oHourInf, const LogInfo& oLogInfo,
                                                         int32_t lPosition) {
  auto oEntry = std::make_shared<CLogProcessEntry>();
  oEntry->Fill(oLog, oHourInf.Copy(), oLogInfo.Copy(), eAct);
  Insert(oEntry, lPosition);
  return oEntry;
}

void CProcessEntryList::Insert(const std::shared_ptr<CLogProcessEntry>& oEntry, int32_t lPosition) {
  if (!oEntry) throw RaisedError(kErrInvalidCall, "CProcessEntryList.Insert", "Invalid procedure call or argument");
  if (lPosition != -1 && (lPosition < 1 || lPosition > Count() + 1))
    throw RaisedError(kErrSubscript, "CProcessEntryList.Insert", "Subscript out of range");
  std::string sKey = oEntry->Reference();
  if (m_oKeys.count(sKey))
    throw RaisedError(kErrDuplicateKey, "CProcessEntryList.Insert",
                      "This key is already associated with an element of this collection");
  const size_t iAt = lPosition == -1 ? m_aEntries.size() : static_cast<size_t>(lPosition - 1);
  m_aEntries.insert(m_aEntries.begin() + static_cast<std::ptrdiff_t>(iAt), oEntry);
  m_aKeys.insert(m_aKeys.begin() + static_cast<std::ptrdiff_t>(iAt), sKey);
  m_oKeys.insert(std::move(sKey));
}

std::shared_ptr<CLogProcessEntry> CProcessEntryList::Item(int32_t lIndex) const {
  if (lIndex < 1 || lIndex > Count())
    throw RaisedError(kErrSubscript, "CProcessEntryList.Item", "Subscript out of range");
  return m_aEntries[static_cast<size_t>(lIndex - 1)];
}

std::shared_ptr<CLogProcessEntry> CProcessEntryList::Item(const std::string& sKey) const {
  const int32_t i = Find(sKey);
  if (i < 0) throw RaisedError(kErrInvalidCall, "CProcessEntryList.Item", "Invalid procedure call or argument");
  return m_aEntries[static_cast<size_t>(i)];
}

void CProcessEntryList::Remove(int32_t lIndex) {
  if (lIndex < 1 || lIndex > Count()) return;
  const auto i = static_cast<std::ptrdiff_t>(lIndex - 1);
  m_oKeys.erase(m_aKeys[static_cast<size_t>(i)]);
  m_aKeys.erase(m_aKeys.begin() + i);
  m_aEntries.erase(m_aEntries.begin() + i);
}

void CProcessEntryList::Remove(const std::string& sKey) {
  const int32_t i = Find(sKey);
  if (i >= 0) Remove(i + 1);
}

int32_t CProcessEntryList::Find(const std::string& sKey) const {
  if (!m_oKeys.count(sKey)) return -1;
  for (size_t i = 0; i < m_aKeys.size(); ++i)
    if (m_aKeys[i] == sKey) return static_cast<int32_t>(i);
  return -1;
}
