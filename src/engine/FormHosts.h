#pragma once
// The form as the host of its work-list preparation and of its hour processing: the work
// list and its view, the captions and progress bars, the capture process, the observer,
// and the form's flags.
#include <cstdint>
#include <string>

#include "engine/IPrepareHost.h"
#include "engine/IProcessHost.h"
#include "engine/frmProcessLogs.h"

class frmProcessLogs::ProcessHost : public IProcessHost {
 public:
  explicit ProcessHost(frmProcessLogs& oForm) : m_oForm(oForm) {}

  WorkList& Rows() override { return m_oForm.m_oRows; }
  void RowsChanged() override;
  IEngineObserver* Observer() override { return m_oForm.m_pObserver; }
  void SendToCapture(const std::string& sText) override { m_oForm.SendToCapture(sText); }
  void SetCaption(const std::string& sText) override { m_oForm.SetCurrentFileCaption(sText); }
  void SetFileProgress(int iPercent) override { m_oForm.SetFileProgress(iPercent); }
  void SetLogProgress(int iPercent) override { m_oForm.SetLogProgress(iPercent); }
  void StillActive() override;
  bool ShutdownRequested() const override { return m_oForm.m_bShutdown; }
  bool SaveArcs() const override { return m_oForm.m_bSaveArcs; }

 private:
  frmProcessLogs& m_oForm;
};

class frmProcessLogs::PrepareHost : public IPrepareHost {
 public:
  explicit PrepareHost(frmProcessLogs& oForm) : m_oForm(oForm) {}

  WorkList& Rows() override { return m_oForm.m_oRows; }
  void SetCaption(const std::string& sText) override { m_oForm.SetCurrentFileCaption(sText); }
  void ListError(const std::string& sError) override;
  void LoggerPreparing(int16_t iLog) override;
  void StillActive() override;
  double LastActive() const override { return m_oForm.m_dLastActive; }

 private:
  frmProcessLogs& m_oForm;
};
