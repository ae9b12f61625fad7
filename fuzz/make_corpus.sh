#!/usr/bin/env bash
# Writes the seed corpus of the fuzz targets into fuzz/corpus/<target>/: a handful of small
# valid inputs each, from which the fuzzers (and the replay tests) mutate. The files are
# committed; run this again only to change them. Audio seeds are made by ffmpeg and sox.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
out=$here/corpus
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

seed() {  # seed <target> <name>: standard input becomes the file
  mkdir -p "$out/$1"
  cat > "$out/$1/$2"
}
crlf() { sed 's/$/\r/'; }
# The target's first byte picks a mode (format, decoder, ...): a byte, then a file.
prefixed() { { printf "\\x$(printf %02x "$2")"; cat "$3"; } | seed "$1" "$4"; }

# --- command_line: the processor's switches and the key of the logger list
printf '/DEBUG' | seed command_line debug
printf '/debugfull /KEEPALIVE "SOFTWARE\\Norvane\\Kestrane v4\\Capture"' | seed command_line full_key
printf '/PLAN /SILENT /SAVEARCS  SOFTWARE\\Other Key  ' | seed command_line plan_bare_key
printf '/KEEPALIVE/DEBUG /CRASH' | seed command_line run_together

# --- registry: exports of the registry editor
cat <<'REG' | crlf | seed registry capture
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\SOFTWARE\Norvane\Kestrane v4\Capture]
"LogCount"=dword:00000002
"LogProcStart"=dword:00000005

[HKEY_LOCAL_MACHINE\SOFTWARE\Norvane\Kestrane v4\Capture\Logger1]
"Enabled"=dword:ffffffff
"LogPath"="D:\\Kestrane\\Logger1"
REG
cat <<'REG' | crlf | seed registry kinds
REGEDIT4

[HKEY_LOCAL_MACHINE\SOFTWARE\Norvane]
"DebugPath"="E:\\Traces \"quoted\""
"Bin"=hex:01,02,ff,\
  00,10
"Multi"=hex(7):41,00,00,00,00,00
@="default"

[-HKEY_LOCAL_MACHINE\SOFTWARE\Gone]
REG
{ printf '\xff\xfe'; printf 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\S\\K]\r\n"a"="b"\r\n' \
    | iconv -f UTF-8 -t UTF-16LE; } | seed registry utf16

# --- profile: ini files (a logger's settings, with comments and odd lines)
cat <<'INI' | crlf | seed profile settings
[General]
Name=Studio 1
OutputCount=1
; a comment
[LogSettings]
SegmentsPerHour=60
  Rate = "44100"
INI
printf '[General]\nA=1\n[general]\nB=\n=x\nno equals\n[Broken\n' | seed profile odd_lines
{ printf '\xff\xfe'; printf '[General]\r\nName=Talk\r\n' | iconv -f UTF-8 -t UTF-16LE; } | seed profile utf16

# --- hourlyinf: hour info files as the capture process writes them
cat <<'INF' | crlf | seed hourlyinf dates
[General]
Version=4.0
[ActionDates]
StandardAudioAt=2010-03-16 13:00
ArchiveAudioAt=2010-03-28 13:00
DeleteAudioAt=2010-04-25 13:00
[Segments]
NumSegs=60
INF
printf '[ActionDates]\nStandardAudioAt=-1\nArchiveAudioAt=20100328 1300\nDeleteAudioAt=1899-12-30 00:00\n' \
  | seed hourlyinf compact_and_marks
printf '[General]\nVersion=4.0\n[Segments]\nNumSegs=12\n' | seed hourlyinf no_dates
# A save round trip runs on inputs of a multiple of 16 bytes ending in "S".
printf '[ActionDates]\nDeleteAudioAt=xx S' | seed hourlyinf save_S
{ printf '\xff\xfe'; printf '[ActionDates]\r\nStandardAudioAt=2010-03-16 13:00\r\n' \
    | iconv -f UTF-8 -t UTF-16LE; } | seed hourlyinf utf16

# --- settings: byte 0 picks the section decoder (0 General, 1 LogSettings, 2 Silence,
# 3 DAB, 4 LogicLines, 5 Serial, 6 Comments, 7 AvailableLog; 31 the whole file), then text
printf 'Name=Studio 1\r\nDescription=Morning\r\nOutputCount=2\r\nGUID={1234}\r\n' > "$work/general"
prefixed settings 0 "$work/general" general
printf 'SegmentsPerHour=60\r\nStandardAudioAfterHours=48\r\nArchiveAudioAfterHours=336\r\nDeleteAudioAfterHours=1008\r\n' \
  > "$work/logsettings"
prefixed settings 1 "$work/logsettings" logsettings
printf 'Threshold=-40\r\nDuration=30\r\nEnabled=1\r\n' > "$work/silence"
prefixed settings 2 "$work/silence" silence
printf 'Port=1\r\nBaud=9600\r\nLine1=Studio\r\n' > "$work/serial"
prefixed settings 5 "$work/serial" serial
cat <<'INI' | crlf > "$work/whole"
[General]
Name=Studio 1
OutputCount=1
[LogSettings]
SegmentsPerHour=60
[Logtypes]
FormatNameA=Format A
FormatType0a=2
FormatType1a=4
FormatType2a=-1
[OutputFormat0a]
SampleRate=44100
Channels=2
FormatTag=1
[OutputFormat1a]
SampleRate=22050
Channels=1
BitRate=32
INI
prefixed settings 31 "$work/whole" whole_file

# --- riff: short WAV files as the recorder and the converters write them
sox -n -r 8000 -c 1 -b 16 "$work/pcm.wav" synth 0.05 sine 440
sox -n -r 8000 -c 1 -e ima-adpcm "$work/ima.wav" synth 0.1 sine 440
sox -n -r 8000 -c 2 -e ms-adpcm "$work/ms.wav" synth 0.05 sine 440
sox -n -r 11025 -c 1 -b 8 "$work/u8.wav" synth 0.05 sine 440
seed riff pcm16_mono < "$work/pcm.wav"
seed riff ima_adpcm < "$work/ima.wav"
seed riff ms_adpcm_stereo < "$work/ms.wav"
seed riff pcm8 < "$work/u8.wav"
head -c 60 "$work/pcm.wav" | seed riff cut_in_data

# --- codecfile: byte 0 picks the array format (rate, channels), then a short file
ff() {  # ff <rate> <seconds> <output options and file>: a sine, without metadata
  ffmpeg -v error -y -fflags +bitexact -f lavfi -i "sine=frequency=440:sample_rate=$1:duration=$2" \
    -map_metadata -1 -flags +bitexact "${@:3}"
}
ff 8000 0.1 -ac 1 -c:a libmp3lame -b:a 8k "$work/a.mp3"
ff 16000 0.1 -ac 1 -c:a mp2 -b:a 32k "$work/a.mp2"
ff 8000 0.3 -ac 1 -c:a libvorbis -q:a 0 "$work/a.ogg"
ff 8000 0.1 -ac 1 -c:a wmav2 -b:a 24k "$work/a.wma"
prefixed codecfile 0 "$work/a.mp3" mp3_to_8k_stereo
prefixed codecfile 5 "$work/a.mp2" mp2_to_22k_mono
prefixed codecfile 2 "$work/a.ogg" ogg_to_44k_stereo
prefixed codecfile 7 "$work/a.wma" wma_to_48k_mono
prefixed codecfile 1 "$work/pcm.wav" wav_to_22k_stereo

for d in "$out"/*/; do
  echo "$(basename "$d"): $(ls "$d" | wc -l) files, $(cat "$d"/* | wc -c) bytes"
done
