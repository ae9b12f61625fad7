// The compressed file class: its format face (sizes, texts, comparisons, settings), its
// reads of files that ffmpeg wrote, its direct and indirect writes, and the length of
// any audio file.
#include <gtest/gtest.h>

#include <cmath>
#include <strings.h>

#include <filesystem>

#include "audio/AudioFormatHelpers.h"
#include "audio/CodecTestUtil.h"
#include "audio/GetAudioLengthSecs.h"
#include "support/CNVErr.h"

namespace fs = std::filesystem;
using namespace codectest;

namespace {

class WarningSink : public IAudioFileEventSink {
 public:
  void NonFatalError(const CNVErr& o) override { aWarnings.push_back(o); }
  std::vector<CNVErr> aWarnings;
};

class NctTest : public CopierRootTest {
 protected:
  void SetUp() override {
    CopierRootTest::SetUp();
    InstallPrx();
  }
};

// ------------------------------------------------------------------ format face

TEST_F(NctTest, NewObjectAndChooseAudioClass) {
  CAudioNCT o;
  EXPECT_EQ(o.FormatType(), FormatWAV);
  EXPECT_EQ(o.SampleRate(), 44100);
  EXPECT_EQ(o.Channels(), 2);
  EXPECT_EQ(o.FormatTag(), 17);
  EXPECT_TRUE(o.Initialised());
  EXPECT_TRUE(o.HandleOutOfProcess());
  o.SetBufLenSecs(3.0);
  EXPECT_EQ(o.BufLenSecs(), 0.0);
  EXPECT_EQ(o.DataSize(1.0f), 44100.0);  // IMA ADPCM 44100 Hz stereo: a quarter of PCM

  auto mp3 = std::dynamic_pointer_cast<CAudioNCT>(ChooseAudioClass(FormatMP3));
  auto mp2 = std::dynamic_pointer_cast<CAudioNCT>(ChooseAudioClass(FormatMP2));
  auto ogg = std::dynamic_pointer_cast<CAudioNCT>(ChooseAudioClass(FormatOGG));
  auto wma = std::dynamic_pointer_cast<CAudioWMA>(ChooseAudioClass(FormatWMA));
  ASSERT_TRUE(mp3 && mp2 && ogg && wma);
  EXPECT_EQ(mp3->FormatType(), FormatMP3);
  EXPECT_EQ(ogg->FormatType(), FormatOGG);
  EXPECT_TRUE(mp3->WriteIndirect());
  EXPECT_FALSE(mp2->WriteIndirect());
  EXPECT_FALSE(ogg->WriteIndirect());
  EXPECT_TRUE(wma->WriteIndirect());
  EXPECT_FALSE(mp3->Initialised());
}

TEST_F(NctTest, DataSizeAndDescription) {
  CAudioNCT o;
  o.SetFileFormat(FormatMP3, 44100, 128, 2, 17);
  EXPECT_EQ(o.DataSize(1.0f), 16384.0);
  EXPECT_EQ(o.Description(), "44,100Hz; Stereo; 128 kbps");
  o.SetFileFormat(FormatWAV, 22050, 0, 1, 1);
  EXPECT_EQ(o.DataSize(2.0f), 88200.0);
  EXPECT_EQ(o.Description(), "22,050Hz; Mono PCM ");
  o.SetFileFormat(FormatWAV, 8000, 0, 2, 17);
  EXPECT_EQ(o.Description(), "8,000Hz; Stereo IMA ADPCM ");
  // Ogg: the first DataSize initialises, then asks the component for its bit rate.
  o.SetFileFormat(FormatOGG, 44100, 96, 2, 17);
  EXPECT_FALSE(o.Initialised());
  EXPECT_EQ(o.DataSize(2.0f), 24000.0);
  EXPECT_TRUE(o.Initialised());
  o.SetFileFormat(FormatMP2, 48000, 192, 1, 17);
  EXPECT_EQ(o.DataSize(1.0f), 24000.0);
  EXPECT_EQ(o.Description(), "48,000Hz; Mono; 192 kbps");
}

TEST_F(NctTest, IsSameFormat) {
  CAudioNCT a, b;
  a.SetFileFormat(FormatMP3, 44100, 128, 2, 17);
  b.SetFileFormat(FormatMP3, 44100, 128, 2, 1);
  EXPECT_TRUE(a.IsSameFormat(&b));  // the tag does not count for MP3
  b.SetFileFormat(FormatMP3, 44100, 64, 2, 17);
  EXPECT_FALSE(a.IsSameFormat(&b));
  b.SetFileFormat(FormatOGG, 44100, 128, 2, 17);
  EXPECT_FALSE(a.IsSameFormat(&b));
  EXPECT_FALSE(a.IsSameFormat(nullptr));
  a.SetFileFormat(FormatWAV, 22050, 10, 1, 17);
  b.SetFileFormat(FormatWAV, 22050, 99, 1, 17);
  EXPECT_TRUE(a.IsSameFormat(&b));  // the bit rate does not count for WAV
  b.SetFileFormat(FormatWAV, 22050, 10, 1, 1);
  EXPECT_FALSE(a.IsSameFormat(&b));
  b.SetFileFormat(FormatWAV, 22050, 10, 2, 17);
  EXPECT_FALSE(a.IsSameFormat(&b));
}

TEST_F(NctTest, SettingsCommonFormatAndCopy) {
  std::string sIni = P("Kestrane.ini");
  CAudioNCT o;
  o.SetFileFormat(FormatOGG, 32000, 80, 1, 17);
  o.SaveFormat(sIni, "Fmt1");
  std::string s = ReadFile("Kestrane.ini");
  EXPECT_NE(s.find("Bitrate=80"), std::string::npos) << s;
  EXPECT_LT(s.find("SampleRate=32000"), s.find("Bitrate=80"));
  EXPECT_LT(s.find("Bitrate=80"), s.find("Channels=1"));
  EXPECT_LT(s.find("Channels=1"), s.find("FormatTag=17"));
  CAudioNCT r;
  r.SetFileFormat(FormatMP2, 8000, 8, 2, 1);
  r.LoadFormat(sIni, "Fmt1");
  EXPECT_EQ(r.FormatType(), FormatMP2);  // the type is not stored
  EXPECT_EQ(r.SampleRate(), 32000);
  EXPECT_EQ(r.BitRate(), 80);
  EXPECT_EQ(r.Channels(), 1);
  r.LoadFormat(sIni, "Missing");
  EXPECT_EQ(r.SampleRate(), 44100);
  EXPECT_EQ(r.Channels(), 2);
  EXPECT_EQ(r.BitRate(), 128);
  EXPECT_EQ(r.FormatTag(), 17);

  auto c = o.CommonFormat();
  EXPECT_EQ(c->BitRate(), 80);
  r.SetCommonFormat(c);
  EXPECT_TRUE(r.IsSameFormat(&o));
  EXPECT_FALSE(r.Initialised());
  r.SetCommonFormat(nullptr);
  EXPECT_EQ(r.FormatType(), FormatOGG);

  auto sink = std::make_shared<WarningSink>();
  o.SetParent(sink);
  o.SetAudioFileName("/x/y.ogg");
  o.SetWriteIndirect(true);
  o.SetMemFormat(Wfx::PCM(22050, 1));
  auto k = o.Copy();
  EXPECT_TRUE(k->IsSameFormat(&o));
  EXPECT_EQ(k->Parent(), sink);
  EXPECT_EQ(k->AudioFileName(), "/x/y.ogg");
  EXPECT_TRUE(k->WriteIndirect());
  EXPECT_EQ(k->MemFormat(), Wfx::PCM(22050, 1));

  Wfx bad = Wfx::PCM(44100, 2);
  bad.wFormatTag = 17;
  EXPECT_THROW(o.SetMemFormat(bad), RaisedError);
  EXPECT_EQ(o.MemFormat().nSamplesPerSec, 22050u);
}

// ------------------------------------------------------------------ reading

TEST_F(NctTest, ReadsCompressedFilesInTheMemoryFormat) {
  struct Case {
    const char* name;
    const char* opts;
    int kbps, rate, ch;
  } cases[] = {{"a.mp3", "-c:a libmp3lame -b:a 128k", 128, 44100, 2},
               {"b.mp3", "-c:a libmp3lame -b:a 32k -ar 22050 -ac 1", 32, 22050, 1},
               {"a.ogg", "-c:a libvorbis -b:a 96k", 96, 44100, 2},
               {"a.mp2", "-c:a mp2 -b:a 64k -ar 24000 -ac 1", 64, 24000, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MakeSource(c.name, c.opts);
    CAudioNCT o;
    o.SetBufLenSecs(1.0);
    o.SetMemFormat(GetMemFormat());
    ASSERT_EQ(o.OpenAudioFile(P(c.name), AudioFileRead), 0);
    EXPECT_TRUE(o.AudioOpen());
    EXPECT_EQ(o.AudioFileName(), P(c.name));
    EXPECT_EQ(o.RecordedFileName(), "");
    EXPECT_EQ(o.SampleRate(), c.rate);
    EXPECT_EQ(o.Channels(), c.ch);
    EXPECT_NEAR(o.BitRate(), c.kbps, 1);
    EXPECT_NEAR(o.AudioLength(), 2.0, 0.06);
    long lBytes = ReadAllBytes(o);
    EXPECT_NEAR(lBytes / 176400.0, o.AudioLength(), 0.03);
    EXPECT_NEAR(o.CurrentPosition(), o.AudioLength(), 0.03);
    // Closing after a read renames and removes nothing.
    auto before = fs::file_size(P(c.name));
    EXPECT_EQ(o.CloseAudioFile(), 0);
    EXPECT_EQ(fs::file_size(P(c.name)), before);
    EXPECT_FALSE(o.AudioOpen());
  }
}

TEST_F(NctTest, EmptyMissingAndBrokenFiles) {
  WriteFile("empty.mp3", "");
  WriteFile("text.mp3", std::string(4000, 't'));
  std::vector<uint8_t> buf(176400 * 2);
  for (const char* s : {"empty.mp3", "missing.mp3"}) {
    CAudioNCT o;
    EXPECT_EQ(o.OpenAudioFile(P(s), AudioFileRead), 0) << s;
    EXPECT_EQ(o.AudioLength(), 0.0);
    EXPECT_EQ(o.ReadAudioData(buf.data(), 1.0f), 0);
  }
  CAudioNCT o;
  EXPECT_EQ(o.OpenAudioFile(P("text.mp3"), AudioFileRead), -1);
  EXPECT_EQ(o.AudioFileName(), "");
  EXPECT_FALSE(o.AudioOpen());
  EXPECT_EQ(o.ReadAudioData(buf.data(), 1.0f), 0);
  EXPECT_TRUE(fs::exists(P("text.mp3")));
}

TEST_F(NctTest, SeekFraction) {
  MakeSource("a.ogg", "-c:a libvorbis -b:a 96k");
  CAudioNCT o;
  ASSERT_EQ(o.OpenAudioFile(P("a.ogg"), AudioFileRead), 0);
  o.SeekFraction(0.5f);
  EXPECT_NEAR(o.CurrentPosition(), 1.0, 0.01);
  long lBytes = ReadAllBytes(o);
  EXPECT_NEAR(lBytes / 176400.0, 1.0, 0.03);
  o.SeekFraction(1.0f);
  EXPECT_DOUBLE_EQ(o.CurrentPosition(), o.AudioLength());
  std::vector<uint8_t> buf(176400 * 2);
  EXPECT_EQ(o.ReadAudioData(buf.data(), 1.0f), 0);
}

// ------------------------------------------------------------------ writing

TEST_F(NctTest, DirectWritesRenameAtClose) {
  struct Case {
    int type, rate, kbps, ch, tag;
    const char* name;
    const char* codec;
  } cases[] = {{FormatMP2, 22050, 64, 1, 17, "o.mp2", "mp2"},
               {FormatOGG, 44100, 96, 2, 17, "o.ogg", "vorbis"},
               {FormatWAV, 16000, 0, 1, 1, "p.wav", "pcm_s16le"},
               {FormatWAV, 22050, 0, 1, 17, "i.wav", "adpcm_ima_wav"}};
  auto src = MemTone(1.5);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WriteFile(c.name, "old content that must go");
    {
      CAudioNCT o;
      o.SetFileFormat(c.type, c.rate, c.kbps, c.ch, c.tag);
      o.SetMemFormat(GetMemFormat());
      ASSERT_EQ(o.OpenAudioFile(P(c.name), AudioFileWrite), 0);
      EXPECT_FALSE(fs::exists(P(c.name)));
      std::string sTemp = o.RecordedFileName();
      EXPECT_EQ(fs::path(sTemp).parent_path(), fs::path(P(c.name)).parent_path());
      EXPECT_TRUE(fs::exists(sTemp));
      EXPECT_TRUE(o.AudioOpen());
      EXPECT_EQ(WriteInPieces(o, src), 88200 * 2 / 2);  // the last piece: half a second
      EXPECT_EQ(o.CloseAudioFile(), 0);
      EXPECT_FALSE(fs::exists(sTemp));
    }
    auto m = Probe(P(c.name));
    EXPECT_EQ(m["codec_name"], c.codec);
    EXPECT_EQ(m["sample_rate"], std::to_string(c.rate));
    EXPECT_EQ(m["channels"], std::to_string(c.ch));
    EXPECT_NEAR(GetAudioLengthSecs(P(c.name)), 1.5, 0.1);
  }
  // The IMA ADPCM file has the platform's block layout: 512 bytes at 22050 Hz mono.
  auto a = audiotest::ReadAll(P("i.wav"));
  ASSERT_GT(a.size(), 34u);
  EXPECT_EQ(static_cast<unsigned char>(a[32]) | (static_cast<unsigned char>(a[33]) << 8), 512);
}

TEST_F(NctTest, NothingWrittenOrAnAbandonedIndirectWriteLeavesNoFile) {
  {
    CAudioNCT o;
    o.SetFileFormat(FormatMP2, 44100, 128, 2, 17);
    ASSERT_EQ(o.OpenAudioFile(P("none.mp2"), AudioFileWrite), 0);
    EXPECT_EQ(o.CloseAudioFile(), 0);
    EXPECT_FALSE(fs::exists(o.RecordedFileName()));
  }
  EXPECT_FALSE(fs::exists(P("none.mp2")));
  // The destructor closes an open direct write under the final name.
  {
    CAudioNCT o;
    o.SetFileFormat(FormatMP2, 44100, 128, 2, 17);
    ASSERT_EQ(o.OpenAudioFile(P("d.mp2"), AudioFileWrite), 0);
    WriteInPieces(o, MemTone(0.5));
  }
  EXPECT_NEAR(GetAudioLengthSecs(P("d.mp2")), 0.5, 0.1);
  // An indirect write that is never closed leaves neither the final file nor its WAV.
  std::string sTemp;
  {
    CAudioNCT o;
    o.SetWriteIndirect(true);
    o.SetFileFormat(FormatMP3, 44100, 128, 2, 17);
    ASSERT_EQ(o.OpenAudioFile(P("x.mp3"), AudioFileWrite), 0);
    WriteInPieces(o, MemTone(0.3));
    sTemp = o.RecordedFileName();
  }
  EXPECT_FALSE(fs::exists(sTemp));
  EXPECT_FALSE(fs::exists(P("x.mp3")));
}

TEST_F(NctTest, WriteFailuresReportByResult) {
  auto src = MemTone(0.1);
  CAudioNCT o;
  EXPECT_EQ(o.WriteAudioData(src.data(), 400), -1);  // nothing open
  o.SetWriteIndirect(true);
  EXPECT_EQ(o.WriteAudioData(src.data(), 400), -1);  // no WAV object
  o.SetWriteIndirect(false);
  // A folder that doesn't exist: no temporary name.
  o.SetFileFormat(FormatMP2, 44100, 128, 2, 17);
  EXPECT_EQ(o.OpenAudioFile(P("nowhere/x.mp2"), AudioFileWrite), -1);
  EXPECT_EQ(o.AudioFileName(), "");
  // A format the encoder refuses: a warning to the parent and the component's number.
  auto sink = std::make_shared<WarningSink>();
  o.SetParent(sink);
  o.SetFileFormat(FormatMP2, 11025, 128, 2, 17);
  int32_t rc = o.OpenAudioFile(P("x.mp2"), AudioFileWrite);
  EXPECT_GT(rc, 0);
  ASSERT_EQ(sink->aWarnings.size(), 1u);
  EXPECT_EQ(sink->aWarnings[0].Number, 2);
  EXPECT_EQ(sink->aWarnings[0].source, "CAudioNCT.OpenWriteFile");
  EXPECT_EQ(sink->aWarnings[0].Description.rfind("Cannot open segment:\r\n", 0), 0u);
  EXPECT_EQ(o.WriteAudioData(src.data(), 400), -1);
  o.CloseAudioFile();
  EXPECT_FALSE(fs::exists(P("x.mp2")));
}

// Indirect writes: a WAV file first, then the copier makes the final file from the
// object's format (the copier's output for every format is checked in its own test).
TEST_F(NctTest, IndirectWritesRunTheCopier) {
  struct Case {
    int type, rate, kbps, ch, profile;
    const char* name;
    const char* codec;
  } cases[] = {{FormatMP3, 22050, 32, 1, 0, "a.mp3", "mp3"},
               {FormatOGG, 44100, 128, 2, 0, "b.ogg", "vorbis"},
               {FormatWMA, 22050, 24, 1, 7, "c.wma", "wmav2"}};
  auto src = MemTone(1.5);
  auto Check = [&](auto o, const Case& c) {
    using Class = typename decltype(o)::element_type;
    o->SetWriteIndirect(true);
    o->SetMemFormat(GetMemFormat());
    ASSERT_EQ(o->OpenAudioFile(P(c.name), AudioFileWrite), 0);
    EXPECT_TRUE(o->AudioOpen());
    std::string sTemp = o->RecordedFileName();
    EXPECT_EQ(strcasecmp(fs::path(sTemp).extension().c_str(), ".wav"), 0) << sTemp;
    EXPECT_EQ(WriteInPieces(*o, src), 88200);
    EXPECT_NEAR(o->CurrentPosition(), 1.5, 0.01);
    EXPECT_EQ(o->CloseAudioFile(), 0);
    EXPECT_FALSE(fs::exists(sTemp));
    auto m = Probe(P(c.name));
    EXPECT_EQ(m["codec_name"], c.codec);
    EXPECT_EQ(m["sample_rate"], std::to_string(c.rate));
    EXPECT_EQ(m["channels"], std::to_string(c.ch));
    EXPECT_NEAR(std::atof(m["bit_rate"].c_str()) / 1000, c.kbps, c.kbps * 0.1);
    auto r = std::dynamic_pointer_cast<Class>(ChooseAudioClass(c.type));
    r->SetMemFormat(GetMemFormat());
    ASSERT_EQ(r->OpenAudioFile(P(c.name), AudioFileRead), 0);
    EXPECT_TRUE(r->IsSameFormat(o.get()));  // the file's values replace the object's
    if constexpr (std::is_same_v<Class, CAudioWMA>) {
      EXPECT_EQ(r->ProfileNum(), c.profile);
    }
    EXPECT_NEAR(ReadAllBytes(*r) / 176400.0, GetAudioLengthSecs(P(c.name)), 0.1);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (auto w = std::dynamic_pointer_cast<CAudioWMA>(ChooseAudioClass(c.type))) {
      w->SetProfileNum(c.profile);
      Check(w, c);
    } else {
      auto n = std::dynamic_pointer_cast<CAudioNCT>(ChooseAudioClass(c.type));
      ASSERT_TRUE(n);
      n->SetFileFormat(c.type, c.rate, c.kbps, c.ch, 17);
      Check(n, c);
    }
  }
}


// A copier output cut short, in any of its formats, measures short: the length check
// (the two lengths within the default tolerance of one second) rejects it, where the
// whole file passes. The length is that of the frames, pages or packets still there.
TEST_F(NctTest, CopierOutputCutShortFailsTheLengthCheck) {
  const double dSecs = 12.0;
  const auto src = MemTone(dSecs);
  struct Case {
    int type;
    const char* name;
  } cases[] = {{FormatMP3, "a.mp3"}, {FormatMP2, "a.mp2"}, {FormatOGG, "a.ogg"}, {FormatWMA, "a.wma"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    {
      auto o = std::dynamic_pointer_cast<IAudioFile>(ChooseAudioClass(c.type));
      ASSERT_TRUE(o);
      if (auto w = std::dynamic_pointer_cast<CAudioWMA>(o)) {
        w->SetProfileNum(23);
        w->SetWriteIndirect(true);
      } else {
        auto n = std::dynamic_pointer_cast<CAudioNCT>(o);
        n->SetFileFormat(c.type, 44100, 128, 2, 17);
        n->SetWriteIndirect(true);
      }
      o->SetMemFormat(GetMemFormat());
      ASSERT_EQ(o->OpenAudioFile(P(c.name), AudioFileWrite), 0);
      WriteInPieces(*o, src);
      ASSERT_EQ(o->CloseAudioFile(), 0);
    }
    // The class's length of a file (-1 when it does not open) and the length check's.
    auto ClassLength = [&](const std::string& sName) {
      auto r = std::dynamic_pointer_cast<IAudioFile>(ChooseAudioClass(c.type));
      r->SetMemFormat(GetMemFormat());
      return r->OpenAudioFile(P(sName), AudioFileRead) == 0 ? r->AudioLength() : -1.0;
    };
    auto Passes = [&](double dActual) { return std::abs(dSecs - dActual) * 1000 <= 1000; };
    EXPECT_NEAR(ClassLength(c.name), dSecs, 0.05);
    EXPECT_NEAR(GetAudioLengthSecs(P(c.name)), dSecs, 0.05);
    const std::string sBytes = audiotest::ReadAll(P(c.name));
    for (double dPart : {0.5, 0.9}) {
      SCOPED_TRACE(dPart);
      const std::string sCut = "cut_" + std::string(c.name);
      audiotest::WriteAll(P(sCut), sBytes.substr(0, static_cast<size_t>(sBytes.size() * dPart)));
      const double dLength = GetAudioLengthSecs(P(sCut));
      EXPECT_FALSE(Passes(dLength)) << dLength;
      // What ffmpeg decodes of the same bytes, but for the pieces of a cut frame or page.
      EXPECT_NEAR(dLength, DecodedFrames(P(sCut), 2) / 44100.0, 0.05);
      EXPECT_LT(dLength, dSecs * dPart + 0.5);
      EXPECT_NEAR(ClassLength(sCut), dLength, 0.001);
    }
  }
}

TEST_F(NctTest, GetAudioLengthSecs) {
  WriteFile("empty.wav", "");
  WriteFile("text.ogg", std::string(2000, 'x'));
  EXPECT_EQ(GetAudioLengthSecs(P("missing.mp3")), -1.0);
  EXPECT_EQ(GetAudioLengthSecs(P("empty.wav")), -1.0);
  EXPECT_EQ(GetAudioLengthSecs(P("text.ogg")), -1.0);
  for (auto [name, opts] : {std::pair{"a.mp3", "-c:a libmp3lame -b:a 64k"}, std::pair{"a.wma", "-c:a wmav2 -b:a 64k"},
                            std::pair{"a.ogg", "-c:a libvorbis"}, std::pair{"a.wav", "-c:a adpcm_ima_wav"}}) {
    SCOPED_TRACE(name);
    MakeSource(name, opts, 1.25);
    double dProbe = std::atof(Probe(P(name))["format_duration"].c_str());
    EXPECT_NEAR(GetAudioLengthSecs(P(name)), 1.25, 0.1);
    EXPECT_NEAR(GetAudioLengthSecs(P(name)), dProbe, 0.1);
  }
  // A WAV file's length is the audio of its data chunk, whatever its "fact" count says:
  // 2 s of IMA ADPCM whose count was set to 1.5 s still measures 2 s and a block at most.
  MakeSource("ima.wav", "-c:a adpcm_ima_wav -ar 8000 -ac 1", 2.0);
  std::string sIma = ReadFile("ima.wav");
  const size_t iFact = sIma.find("fact");
  if (iFact != std::string::npos) {
    const uint32_t lCount = 12000;
    for (int b = 0; b < 4; ++b) sIma[iFact + 8 + b] = static_cast<char>((lCount >> (8 * b)) & 0xFF);
    WriteFile("ima.wav", sIma);
  }
  EXPECT_GE(GetAudioLengthSecs(P("ima.wav")), 2.0);
  EXPECT_LT(GetAudioLengthSecs(P("ima.wav")), 2.07);
}

}  // namespace
