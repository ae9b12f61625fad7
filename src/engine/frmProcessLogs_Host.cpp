#include "engine/FormHosts.h"
#include "engine/IEngineObserver.h"
#include "support/Clock.h"

void frmProcessLogs::ProcessHost::RowsChanged() {
  if (m_oForm.m_pView) m_oForm.m_pView->RowsChanged();
}

void frmProcessLogs::ProcessHost::StillActive() { m_oForm.m_dLastActive = Clock::Now(); }

void frmProcessLogs::PrepareHost::ListError(const std::string& sError) {
  if (m_oForm.m_pObserver) m_oForm.m_pObserver->ErrorLine(sError);
  m_oForm.SendToCapture("PrepareListError:" + sError);
}

void frmProcessLogs::PrepareHost::LoggerPreparing(int16_t iLog) {
  if (m_oForm.m_pObserver) m_oForm.m_pObserver->LoggerPreparing(iLog);
}

void frmProcessLogs::PrepareHost::StillActive() { m_oForm.m_dLastActive = Clock::Now(); }
