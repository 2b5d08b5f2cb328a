// The packet codec, and the checksum against zlib's over the same bytes.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <string>

#include "client/vxwire.h"
#include "protocol/ciplib.h"
#include "protocol/reply.h"
#include "protocol/request.h"

namespace {

String Text(int64_t size) {
  String text;
  text.SetLength(static_cast<int>(size));
  for (int i = 0; i < text.Length(); ++i) text.Data()[i] = static_cast<char>(i * 131);
  return text;
}

void KeySchedule(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(TCipherKey("session key").Start()[0]);
}
BENCHMARK(KeySchedule);

void SelfTest(benchmark::State& state) {
  for (auto _ : state) Twofish_initialise();
}
BENCHMARK(SelfTest)->Unit(benchmark::kMillisecond);

void Encode(benchmark::State& state) {
  const String text = Text(state.range(0));
  const TCipherKey key("session key");
  for (auto _ : state) benchmark::DoNotOptimize(EncodeData(text, key, SIZELEN_PACKET).Data());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Encode)->RangeMultiplier(32)->Range(16, 16 << 20)->Unit(benchmark::kMicrosecond);

void Decode(benchmark::State& state) {
  const String text = Text(state.range(0));
  const TCipherKey key("session key");
  for (auto _ : state) benchmark::DoNotOptimize(DecodeData(text.Data(), text.Length(), key).Data());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Decode)->RangeMultiplier(32)->Range(16, 16 << 20)->Unit(benchmark::kMicrosecond);

/// One trivial request from packet to packet, as a session serves it: the settings hold what the
/// cipher makes of the password.
void ParseAndReply(benchmark::State& state) {
  const TCipherKey password("password");
  const std::string packet = BuildRequest("password", "session key", "GetInfo\n\r");
  const String bytes(packet.data(), static_cast<int>(packet.size()));
  for (auto _ : state) {
    VxRequest request;
    request = bytes;
    if (request.ParseInitRequest("password", password, in_addr{}) == 0)
      state.SkipWithError("refused");
    QovReply reply;
    reply.InitPacket(nullptr, request.SessionCipher());
    reply.SetResult("200");
    reply.FinalizePacket();
    benchmark::DoNotOptimize(reply.Data());
  }
}
BENCHMARK(ParseAndReply)->Unit(benchmark::kMicrosecond);

/// Lines added to a reply, bytes a second.
void AppendLines(benchmark::State& state) {
  for (auto _ : state) {
    QovReply reply;
    while (reply.Length() < state.range(0)) reply.AddStringParam("/var/log/messages.1", 1);
    benchmark::DoNotOptimize(reply.Data());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(AppendLines)->Arg(1 << 10)->Arg(16 << 20)->Unit(benchmark::kMicrosecond);

void Crc(benchmark::State& state) {
  const String text = Text(state.range(0));
  TCRC32 crc;
  for (auto _ : state) benchmark::DoNotOptimize(crc.GetBlockCRC(text.Data(), text.Length()));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void CrcOfZlib(benchmark::State& state) {
  const String text = Text(state.range(0));
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.Data());
  for (auto _ : state) {
    benchmark::DoNotOptimize(crc32(0, bytes, static_cast<unsigned>(text.Length())));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Crc)->Arg(64)->Arg(4096)->Arg(65536)->Arg(1 << 20);
BENCHMARK(CrcOfZlib)->Arg(64)->Arg(4096)->Arg(65536)->Arg(1 << 20);

}  // namespace

int main(int argc, char** argv) {
  Twofish_initialise();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
