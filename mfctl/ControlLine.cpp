#include "ControlLine.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Printable.h"
#include "SigningCommands.h"

int runControlLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    std::string name;
    std::string key;
    std::string trust;
    std::vector<std::string> files;

    CLI::App app("Signs the configuration of a workplace and checks signatures.", "mfctl");
    app.set_version_flag("--version", "mfctl " MFCTL_VERSION);
    app.require_subcommand(1);

    auto* pKeygen =
        app.add_subcommand("keygen", "make NAME.key (keep it secret) and NAME.pem (to be trusted)");
    pKeygen->add_option("name", name, "path of the two files without their endings")
        ->type_name("NAME")
        ->required();

    auto* pSign = app.add_subcommand("sign", "sign files: FILE.sig, and FILE.sig.info with the key's number");
    pSign->add_option("--key", key, "private key")->type_name("FILE")->required();
    pSign->add_option("files", files, "what to sign")->type_name("FILE")->required();

    auto* pVerify = app.add_subcommand("verify", "tell whether trusted keys signed the files");
    pVerify->add_option("--trust", trust, "directory of the trusted public keys (*.pem)")
        ->type_name("DIR")
        ->required();
    pVerify->add_option("files", files, "what to check")->type_name("FILE")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success, out, err);
    } catch (const CLI::Error& error) {
        err << "mfctl: " << base::printable(error.what()) << "\n"
            << "usage: mfctl keygen NAME | sign --key FILE FILE... | verify --trust DIR FILE...; "
               "mfctl --help tells more"
            << std::endl;
        return 2;
    }
    SigningCommands commands(out, err);
    if (pKeygen->parsed())
        return commands.keygen(name);
    if (pSign->parsed())
        return commands.sign(key, files);
    return commands.verify(trust, files);
}
