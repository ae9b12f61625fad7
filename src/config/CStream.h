#pragma once
// The settings of one capture stream, kept in the registry under
// "SOFTWARE\Norvane\Kestrane v4\Capture\Logger<n>". Above all: whether the logger takes
// part (Enabled) and where its folder is (LogPath).
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

class CStream {
 public:
  static constexpr const char* kDefaultRoot = "SOFTWARE\\Norvane\\Kestrane v4\\Capture";
  static constexpr int32_t kErrChannelMode = static_cast<int32_t>(0x80040001u);

  // SaveToDisk bits.
  enum eFlags : int32_t {
    sfLogPath = 1,
    sfLevels = 2,  // InputLevel, Soundcard, ChannelMode
    sfEnabled = 8,
    sfAutostart = 16,
    sfPaths = 32,  // DirLogPath, AltCommentPath
    sfChannels = 64,
  };

  CStream();
  ~CStream();
  CStream(const CStream&) = delete;
  CStream& operator=(const CStream&) = delete;

  // Public fields.
  std::string AltCommentsPath;
  std::string DirLogPath;
  bool Running = false;

  // Events.
  std::function<void(int16_t devNum)> SoundCardChange;
  std::function<void(bool bEnabled)> StreamEnabled;
  std::function<void(bool bAutoStart)> AutostartChange;
  std::function<void(const std::string& sNewPath)> LogPathChange;
  std::function<void(int16_t iMode)> ChannelModeChange;
  std::function<void()> AudioRateChanged;

  // Properties.
  bool AutoStart() const { return m_bAutoStart; }
  void AutoStart(bool b);
  int32_t SampleRate() const { return m_lSampleRate; }
  void SampleRate(int32_t l);
  int32_t Channels() const { return m_iChannels; }
  void Channels(int32_t l);  // narrowed to 16 bits (overflow error)
  int16_t ChannelMode() const { return m_iChannelMode; }
  void ChannelMode(int32_t newMode);  // 0 to 2, else error 0x80040001
  int16_t InputLevel() const { return m_iInputLevel; }
  void InputLevel(int32_t newLevel);  // clamped to 0 to 100
  const std::string& LogPath() const { return m_sLogPath; }
  void LogPath(const std::string& s);
  int16_t SoundCardDevNum() const { return m_iSoundCardDevNum; }
  void SoundCardDevNum(int32_t devNum);
  bool Enabled() const { return m_bEnabled; }
  void Enabled(bool b);
  int16_t logNum() const { return m_iLogNum; }
  void logNum(int16_t num);

  // Operations.
  bool Load(int16_t iIndex, const std::string& sKey);
  void LoadDefaults();
  void SaveDefaults();
  void SaveToDisk(int32_t eFlags);
  void DeleteFromDisk();
  std::shared_ptr<CStream> Copy() const;
  void Merge(const CStream& oFrom);
  bool SetupFolders();
  std::string Summary() const { return ""; }

  // Default paths of logger n: "<data drive>:\Kestrane\Logger<n>" and
  // "\\<computer>\Kestrane\Logger<n>".
  static std::string DefaultLogPath(int32_t n);
  static std::string DefaultDirLogPath(int32_t n);

 private:
  std::string KeyOf() const;

  bool m_bAutoStart = false;
  int32_t m_lSampleRate = 44100;
  int16_t m_iChannels = 2;
  int16_t m_iChannelMode = 0;
  int16_t m_iInputLevel = 0;
  std::string m_sLogPath;
  int16_t m_iSoundCardDevNum = 0;
  bool m_bEnabled = false;
  int16_t m_iLogNum = 0;
};
