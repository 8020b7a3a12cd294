// decode, encode: they need no modem.
#include "tools/command_line.h"

namespace smspb::cli {

namespace {

void addDecode(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<DecodeOptions>();
    CLI::App *const command =
        addCommand(app, "decode", "Explain a PDU; needs no modem",
                   "  smspb decode 00040B917198210143F500006230018000000005E8329BFD06\n"
                   "  smspb decode - --json < pdu.txt");
    command
        ->add_option("PDU", options->pdu,
                     "Hexadecimal, with its service-centre part; \"-\" reads standard input")
        ->required()
        ->type_name("");
    command->callback([&line, options] {
        line.needsModem = false;
        line.action = calls(decode, options);
    });
}

void addEncode(CLI::App &app, CommandLine &line) {
    const auto options = std::make_shared<ComposeOptions>();
    CLI::App *const command =
        addCommand(app, "encode", "Compose the PDUs of a text; needs no modem",
                   "  smspb encode +491701234567 hello\n"
                   "  smspb encode --reference 7 +491701234567 - < letter.txt");
    addMessage(command, *options);
    command->add_option("--reference", options->reference, "Reference of a concatenated message")
        ->capture_default_str()
        ->check(CLI::Range(0, 255))
        ->type_name("0..255");
    command->callback([&line, options] {
        line.needsModem = false;
        line.action = calls(encode, options);
    });
}

} // namespace

void addPduCommands(CLI::App &app, CommandLine &line) {
    addDecode(app, line);
    addEncode(app, line);
}

} // namespace smspb::cli
