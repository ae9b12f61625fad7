#pragma once
// The Windows Media component: reads WMA files (and anything else the codec back end
// reads) and writes WMA v2 files in a numbered profile of a profile file. Audio crosses
// it as arrays of interleaved 16-bit samples in the array format. Failures raise
// CodecError.
//
// Profile file (nvkn4.prx), plain text, one profile a line:
//
//     <number> = <sample rate in Hz>, <channels>, <bit rate in kbit/s> [, <description>]
//
// for instance "23 = 44100, 2, 64, Stereo FM quality". Numbers run from 1 to 9999.
// Blanks around the items are ignored; blank lines, lines that begin with ";" or "#",
// and section headers ("[Profiles]") are skipped, and so is a line that does not follow
// the form or names a rate outside 8000..48000 Hz, channels other than 1 or 2, or a bit
// rate outside 24..320 kbit/s (the range of the WMA v2 encoder). When a number appears
// twice, the first line counts.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class AvAudioReader;
class AvAudioWriter;

struct WmaProfile {
  int32_t lNumber = 0;
  int32_t lSampleRate = 0;
  int32_t lChannels = 0;
  int32_t lBitRateKbps = 0;
  std::string sDescription;
};

class WmaFile {
 public:
  static constexpr int32_t kSeekCurrent = 1;
  static constexpr int32_t kSeekAbsolute = 3;

  WmaFile();
  ~WmaFile();
  WmaFile(const WmaFile&) = delete;
  WmaFile& operator=(const WmaFile&) = delete;

  void Open(const std::string& sPath);
  void Close();
  // Creates a WMA file with the present profile.
  void Create(const std::string& sPath);
  void WriteSamples(const std::vector<int16_t>& aSamples);
  void WriteSamples(const int16_t* pSamples, size_t lCount);
  std::vector<int16_t> ReadSamples(int32_t lSamplesPerChannel);
  void Seek(int32_t lPosition, int32_t lOrigin, int32_t& lNewPosition);
  void SetArrayFormat(int32_t lSampleRate, int32_t lChannels);
  // Loads a profile file; "" lets go of the profiles. Raises when the file can't be read.
  void LoadProfiles(const std::string& sPath);

  // The format arrays really have: the array format asked for, or with resampling off
  // the open file's own.
  int32_t ArrayChannels() const;
  int32_t ArraySampleRate() const;
  // Frames of the open file; after a Close, those of the file just closed.
  int32_t TotalSamples() const;
  int16_t Channels() const;  // of the open file, else of the present profile
  int32_t LengthMs() const;
  int32_t SampleRate() const;
  int32_t BitRate() const;  // bits a second
  int32_t State() const;    // 0 no file, 1 reading, 2 writing
  int32_t ProfileNum() const { return m_lProfileNum; }
  void SetProfileNum(int32_t lNumber) { m_lProfileNum = lNumber; }

  // Off: arrays come in the file's own rate and channels (for a caller that converts).
  void SetResampling(bool bOn) { m_bResampling = bOn; }

  const std::vector<WmaProfile>& Profiles() const { return m_aProfiles; }
  // Adds a profile, or replaces the one of the same number.
  void AddProfile(const WmaProfile& p);
  const WmaProfile* FindProfile(int32_t lNumber) const;
  // The profiles of a profile file's text, in file order.
  static std::vector<WmaProfile> ParseProfiles(const std::string& sText);

 private:
  std::unique_ptr<AvAudioReader> m_pReader;
  std::unique_ptr<AvAudioWriter> m_pWriter;
  std::vector<WmaProfile> m_aProfiles;
  WmaProfile m_writing;
  int32_t m_lProfileNum = 0;
  int32_t m_lArrayRate = 44100;
  int32_t m_lArrayChannels = 2;
  int64_t m_lWritten = 0;
  int32_t m_lLastTotal = 0;
  bool m_bResampling = true;
};
