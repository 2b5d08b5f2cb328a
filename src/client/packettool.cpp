#include <stdint.h>

#include <memory>

#include "client/answer.h"
#include "client/failure.h"
#include "client/packetfile.h"
#include "client/request.h"
#include "client/tools.h"
#include "client/vxwire.h"

namespace {
struct TPacketArguments {
  std::string key;
  std::string file;
  bool reply = false;
};
}  // namespace

static std::string Password(const TControlRun& run) {
  std::string warning;
  const std::string password = ResolvePassword(run.options, warning);
  Warn(warning);
  return password;
}

static int Build(const TControlRun& run, const TPacketArguments& arguments,
                 std::vector<std::string> words) {
  const std::string command = TakeCommand(words);
  const std::string key = arguments.key.empty() ? NewSessionKey() : arguments.key;
  if (key.size() > UINT16_MAX) throw TUsageFailure("--key takes at most 65535 bytes");
  const std::string packet = BuildRequest(Password(run), key, MakeRequestText(command, words));
  Print("# request " + command + ", " + std::to_string(packet.size()) + " bytes, session key " +
        key + '\n' + HexText(packet));
  return kExitDone;
}

static int Read(const TControlRun& run, const TPacketArguments& arguments) {
  const std::string packet = ReadPacketText(ReadLocalFile(arguments.file, "packet"));
  bool valid = false;
  if (arguments.reply) {
    if (arguments.key.empty()) throw TUsageFailure("a reply is read with --key");
    Print(DescribeReply(packet, arguments.key, valid));
  } else {
    Print(DescribeRequest(packet, Password(run), valid));
  }
  return valid ? kExitDone : kExitFailed;
}

void AddPacket(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("packet", "build or read packets offline, for bug reports");
  sub->fallthrough()->footer("")->require_subcommand(1, 1);
  auto arguments = std::make_shared<TPacketArguments>();

  CLI::App* build = sub->add_subcommand("build", "the request packet of COMMAND [PARAM...]");
  build->prefix_command()->fallthrough(false)->footer("");
  build->add_option("--key", arguments->key, "session key (a random one)")->type_name("TEXT");
  build->callback([&run, arguments, build] {
    run.action = [&run, arguments, build] { return Build(run, *arguments, build->remaining()); };
  });

  CLI::App* read = sub->add_subcommand("read", "what a packet file holds");
  read->fallthrough()->footer("");
  read->add_option("FILE", arguments->file, "packet, as bytes or hexadecimal text")
      ->required()
      ->type_name("");
  read->add_flag("--reply", arguments->reply, "it is a reply");
  read->add_option("--key", arguments->key, "session key of the request")->type_name("TEXT");
  read->callback(
      [&run, arguments] { run.action = [&run, arguments] { return Read(run, *arguments); }; });
}
