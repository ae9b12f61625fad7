#pragma once
// The common half of the compressed audio classes: a component (CodecFile or WmaFile)
// that reads and writes the file itself, or, in indirect mode, a temporary WAV file
// that the external copier turns into the final file at close. The class of each
// format keeps its format members, its write open and its reads; this part keeps the
// state both share, the frame of the read open, the write, the close (through the
// copier in indirect mode) and the positions. Made for CodecFile and WmaFile only.
#include <memory>
#include <string>
#include <vector>

#include "audio/IAudioFile.h"
#include "audio/IAudioFormat.h"

class CodecError;

// The names that a class's traces and warnings carry.
struct CopierTraceNames {
  std::string sOpen;        // the routine of OpenAudioFile
  std::string sClose;       // the routine of CloseAudioFile
  std::string sWrite;       // the routine of WriteAudioData
  std::string sWarnSource;  // the source of the warnings of OpenWriteFile
  std::string sNoWavFile;   // WriteAudioData's reasons: no WAV writer in indirect mode,
  std::string sNoFile;      //   no component,
  std::string sNotOpen;     //   and a component that is not writing
  std::string sKillEmpty;   // the trace before an empty file is deleted ("" for none)
};

template <class TComponent>
class CopierBackedAudioFile : public IAudioFormat, public IAudioFile {
 public:
  explicit CopierBackedAudioFile(CopierTraceNames oNames);
  ~CopierBackedAudioFile() override;
  CopierBackedAudioFile(const CopierBackedAudioFile&) = delete;
  CopierBackedAudioFile& operator=(const CopierBackedAudioFile&) = delete;

  // Path of the external copier.
  static std::string CopierPath();
  bool WriteIndirect() const { return m_bWriteIndirect; }
  void SetWriteIndirect(bool b) { m_bWriteIndirect = b; }

  // ---- IAudioFormat
  int32_t GetBlockAlign() override { return Channels() * 2; }

  // ---- IAudioFile
  std::shared_ptr<IAudioFileEventSink> Parent() override { return m_oFileParent; }
  void SetParent(const std::shared_ptr<IAudioFileEventSink>& o) override { m_oFileParent = o; }
  std::string AudioFileName() override { return m_sAudioFileName; }
  void SetAudioFileName(const std::string& s) override { m_sAudioFileName = s; }
  double BufLenSecs() override { return 0.0; }
  void SetBufLenSecs(double) override {}
  bool AudioOpen() override;
  std::string RecordedFileName() override { return m_sRecordedFileName; }
  int32_t OpenAudioFile(const std::string& sFile, int32_t eMode) override;
  int32_t WriteAudioData(const void* pAudioBuffer, int32_t lBufferLen) override;
  int32_t CloseAudioFile() override;
  double AudioLength() override;
  double CurrentPosition() override;
  bool HandleOutOfProcess() override { return true; }
  void GetLeftOverBuffer(std::vector<uint8_t>& lpBuffer, int32_t& BufferSize) override;
  void SetLeftOverBuffer(const uint8_t*, int32_t) override {}

  // For tests: the component and the WAV object of the indirect mode.
  TComponent& Component() { return *m_oAudioFile; }
  std::shared_ptr<IAudioFile> WavFile() const { return m_oWavFile; }

 protected:
  // The read open's steps of the class: the component's open (raises CodecError), and
  // what follows it, open or not.
  virtual void OpenComponent(const std::string& sFile) = 0;
  virtual void AfterReadOpen(bool bOpen) = 0;
  virtual int32_t OpenWriteFile(const std::string& sFile) = 0;
  // Whether the file written directly holds audio: it is renamed to its final name at
  // close, or deleted when it holds none.
  virtual bool WroteAudio() = 0;
  // What the class clears after the component closed a file.
  virtual void AfterComponentClose() {}
  // The reason of WriteAudioData's trace when the component refused the samples.
  virtual std::string WriteFailure(const CodecError& e);
  // The copier's command line for the indirect close.
  virtual std::string CopierArguments();

  // The part of a destructor that the class of a format calls first: closes an open
  // file, and abandons an indirect write that nobody closed together with its temporary
  // WAV file (it would otherwise stay beside the audio as a file of its own).
  void CloseForDestruction();
  // The indirect mode's open: a PCM WAV file of the component's rate and channels under
  // the temporary name.
  int32_t OpenIndirectWav(const std::string& sFile);
  // Deletes a file that is in the way of a write; its failure warns the parent (number 1,
  // sWarning and the path). 0 or the failed delete's result.
  int32_t DeleteInTheWay(const std::string& sPath, const std::string& sWarning);
  // A non-fatal warning to the parent, if any, from the class's OpenWriteFile.
  void Warn(int32_t lNumber, const std::string& sDescription);

  CopierTraceNames m_oNames;
  std::unique_ptr<TComponent> m_oAudioFile;
  std::shared_ptr<IAudioFile> m_oWavFile;
  std::shared_ptr<IAudioFileEventSink> m_oFileParent;
  std::string m_sAudioFileName;
  std::string m_sRecordedFileName;
  bool m_bWriteIndirect = false;
  Wfx m_wfxMemFormat;
  int32_t m_iSamples = 0;

 private:
  // The open for reading: nothing for an empty or missing file (0); a file the component
  // does not open leaves the name as it was (-1).
  int32_t OpenReadFile(const std::string& sFile);
  // Closes the component's file, if any, ignoring its failure.
  void CloseComponentQuietly();
  int32_t CloseDirect();
  int32_t CloseThroughCopier();
};

class CodecFile;
class WmaFile;
extern template class CopierBackedAudioFile<CodecFile>;
extern template class CopierBackedAudioFile<WmaFile>;
