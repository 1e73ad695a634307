// morv-settings: reads and changes the settings of Morv's products from the
// command line. The command line is parsed with CLI11; the commands are in
// Commands.cpp.
//
// Exit status: 0 on success, 1 when the setting or product is not there or
// the operation failed, 2 for a usage error. Messages go to standard error.

#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "Commands.h"
#include "ToolError.h"
#include "ValueTypes.h"

#ifndef MORV_VERSION
#error "MORV_VERSION must be defined by the build"
#endif

namespace {

const char kName[] = "morv-settings";

// What the command line said.
struct Options {
  bool installer = false;
  std::string product;
  std::string key;
  std::string type;
  std::string value;
  std::string file;
  std::string format = "xml";
  bool json = false;
  morv_tool::ApplyOptions apply;
};

std::string TypeList() {
  std::string text = "Types:\n";
  for (const morv_tool::ValueType& type : morv_tool::ValueTypes()) {
    text += "  " + std::string(type.name) + std::string(8 - std::string(type.name).size(), ' ') +
            type.description + "\n";
  }
  return text;
}

// Adds --installer and PRODUCT, which every command takes.
void AddTarget(CLI::App* command, Options& options) {
  command->add_flag("--installer", options.installer,
                    "Work on the installer's record (Install/PRODUCT, shared file)");
  command->add_option("PRODUCT", options.product, "Product id, such as MorvMediaServer")
      ->required();
}

// Adds --json, which prints (or, for import, reads) JSON.
void AddJson(CLI::App* command, Options& options, const char* what) {
  command->add_flag("--json", options.json, what);
}

const char kDescription[] =
    "Reads and changes the settings of Morv's products.\n"
    "\n"
    "A product's own settings are the key Settings/PRODUCT in its per-user file,\n"
    "$XDG_CONFIG_HOME/Preferences/com.morv.PRODUCT.plist (~/.config by default),\n"
    "read with machine-wide defaults as fallback: Settings/PRODUCT in the shared\n"
    "file, $XDG_CONFIG_DIRS/Morv/Preferences/com.morv.plist (/etc/xdg by default).\n"
    "Changes go to the per-user file. With --installer, a command works on the\n"
    "installer's record of the product instead: Install/PRODUCT in the shared file.\n"
    "\n"
    "KEY is a slash path: a/b/name is the value (or key) \"name\" under the keys\n"
    "a and b. Run morv-settings COMMAND --help for each command.\n";

const char kFooter[] =
    "Exit status: 0 on success; 1 when the setting or product is not there or the\n"
    "operation failed (nothing is changed then); 2 for a usage error.\n"
    "\n"
    "Examples:\n"
    "  morv-settings write --installer MorvMediaServer InstallPath string /opt/mms/bin/mms\n"
    "  morv-settings read --installer MorvMediaServer InstallPath\n"
    "  morv-settings write MorvMediaServer Network/HttpPort int 8080\n"
    "  morv-settings read MorvMediaServer\n"
    "  morv-settings export MorvMediaServer --format binary backup.plist\n"
    "  morv-settings import OtherProduct backup.plist\n"
    "  morv-settings apply --json MorvMediaServer settings.json\n"
    "  morv-settings watch MorvMediaServer Network\n"
    "  morv-settings read --json MorvMediaServer > settings.json\n";

// The command that argv names, when it names none that exists: CLI11 would
// only say that a command is required.
std::string UnknownCommand(const CLI::App& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') return std::string();
  std::string names;
  for (const CLI::App* command : app.get_subcommands({})) {
    if (command->get_name() == argv[1]) return std::string();
    names += (names.empty() ? "" : ", ") + command->get_name();
  }
  return std::string("unknown command \"") + argv[1] + "\" (the commands are " + names + ")";
}

// A command of the tool: its CLI11 sub-command, and what runs it once the
// command line is parsed.
struct Command {
  CLI::App* app;
  std::function<void()> run;
};

// What the command works on, from --installer and PRODUCT (checked here).
morv_tool::SettingsTarget Target(const Options& options) {
  return morv_tool::SettingsTarget(options.product, options.installer);
}

Command AddRead(CLI::App& app, Options& options) {
  CLI::App* read =
      app.add_subcommand("read", "Print a value, or a key's entries as a tree with their kinds");
  AddTarget(read, options);
  read->add_option("KEY", options.key,
                   "The value or key to print (a/b/name); the product's whole node if left out");
  read->add_option("--type,-t", options.type, "Read the value as this type (see below)");
  AddJson(read, options, "Print JSON: every kind of entry, exactly (see morv-settings(1))");
  read->footer(
      TypeList() +
      "\nWithout --type, a value prints as its kind: numbers in decimal (reals in\n"
      "the shortest form that reads back exactly), true or false, text as it is,\n"
      "data in hex. A key prints as a tree: NAME (KIND) = VALUE, keys as NAME/.\n"
      "With --type, the value is read as the store's Fetch for that type reads it\n"
      "(numbers convert, and are also read from text entries).\n"
      "With --json, a key prints as a JSON object, a value as its JSON: integers\n"
      "and reals as numbers (reals always with a fraction or an exponent), data\n"
      "as {\"$data\": BASE64}, dates as {\"$date\": ISO-8601}, sets as {\"$set\": [...]},\n"
      "UIDs as {\"$uid\": N}; import --json reads it back.");
  return {read, [&options] {
            morv_tool::ReadCommand(Target(options), options.key, options.type, options.json,
                                   std::cout);
          }};
}

Command AddWrite(CLI::App& app, Options& options) {
  CLI::App* write = app.add_subcommand("write", "Store a value, creating the file and keys");
  AddTarget(write, options);
  write->add_option("KEY", options.key, "Where to store it (a/b/name)")->required();
  write->add_option("TYPE", options.type, "The value's type (see below)")->required();
  CLI::Option* value = write->add_option(
      "VALUE", options.value, "The value (a decimal number, a boolean, text, or hex bytes)");
  write->add_option("--file,-f", options.file,
                    "Take a string or data value from FILE (-: standard input)");
  write->footer(TypeList() +
                "\nIntegers are decimal and must fit their type; reals are decimal and\n"
                "finite; bad values change nothing. The store keeps every integer as one\n"
                "signed 64-bit entry: a uint64 above 9223372036854775807 reads back as\n"
                "negative unless read with --type uint64. A value replaces any value of\n"
                "its name; a key with entries below it is not replaced (delete it first).\n"
                "Missing keys on the way are made. Put -- before a negative number\n"
                "if it is taken for an option.");
  return {write, [&options, value] {
            morv_tool::WriteCommand(Target(options), options.key, options.type, value->count() > 0,
                                    options.value, options.file);
          }};
}

Command AddDelete(CLI::App& app, Options& options) {
  CLI::App* remove = app.add_subcommand(
      "delete", "Delete a value or a key (with everything below it), or the product's node");
  AddTarget(remove, options);
  remove->add_option("KEY", options.key,
                     "The value or key to delete; the product's whole node if left out");
  remove->footer(
      "Deletes only from the file that changes go to: a product's machine-wide\n"
      "defaults are left as they are.");
  return {remove, [&options] { morv_tool::DeleteCommand(Target(options), options.key); }};
}

Command AddList(CLI::App& app, Options& options) {
  CLI::App* list = app.add_subcommand("list", "List the keys (with a trailing /) and values");
  AddTarget(list, options);
  list->add_option("KEY", options.key, "The key to list (a/b); the product's node if left out");
  AddJson(list, options, "Print {\"keys\": [NAME...], \"values\": {NAME: KIND...}}");
  return {list, [&options] {
            morv_tool::ListCommand(Target(options), options.key, options.json, std::cout);
          }};
}

Command AddExport(CLI::App& app, Options& options) {
  CLI::App* exportCommand =
      app.add_subcommand("export", "Write the product's settings as a property list");
  AddTarget(exportCommand, options);
  exportCommand->add_option("FILE", options.file, "Where to write it (- or none: standard output)");
  exportCommand->add_option("--format", options.format, "xml (the default) or binary")
      ->check(CLI::IsMember({"xml", "binary"}));
  exportCommand->footer(
      "Exports the entries of the file that changes go to (the per-user file, or the\n"
      "shared file with --installer), every kind of entry included (arrays and dates\n"
      "too); a product's machine-wide defaults are not part of it. import reads the\n"
      "result back.");
  return {exportCommand,
          [&options] { morv_tool::ExportCommand(Target(options), options.format, options.file); }};
}

Command AddImport(CLI::App& app, Options& options) {
  CLI::App* import = app.add_subcommand(
      "import", "Merge a property list (XML or binary) into the product's settings");
  AddTarget(import, options);
  import->add_option("FILE", options.file, "The property list (- for standard input)")->required();
  AddJson(import, options, "FILE holds JSON, as read --json prints a node");
  import->footer(
      "Dictionaries merge into the keys of their names (made when missing); every\n"
      "other entry replaces the entry of its name; entries the file does not name are\n"
      "kept. A file that is not a property list with a dictionary at its root changes\n"
      "nothing.");
  return {import,
          [&options] { morv_tool::ImportCommand(Target(options), options.file, options.json); }};
}

Command AddApply(CLI::App& app, Options& options) {
  CLI::App* apply = app.add_subcommand(
      "apply",
      "Make the product's entries equal to those of a JSON file, changing only what differs");
  AddTarget(apply, options);
  apply
      ->add_option("FILE", options.file,
                   "The entries, as read --json prints a node (- for standard input)")
      ->required();
  apply->add_flag("--prune", options.apply.prune,
                  "Also remove the entries that FILE does not name");
  apply->add_flag("--check", options.apply.check, "Change nothing; report what would change");
  apply->add_flag("--diff", options.apply.diff, "Show the old and new values of each change");
  AddJson(apply, options,
          "Print {\"changed\": BOOL, \"changes\": [{\"change\", \"path\", \"old\", \"oldKind\", "
          "\"new\", \"newKind\"}...]}");
  apply->footer(
      "Stores each entry of FILE whose kind or value differs from the product's,\n"
      "in one save of the file that changes go to (the per-user file, or the shared\n"
      "file with --installer); entries already equal are not stored again, and when\n"
      "nothing differs the file is not written. Keys merge: entries of a key that\n"
      "FILE does not name are kept, unless --prune. A value replaces a key of its\n"
      "name, and a key a value. FILE is checked whole first: when it is not a\n"
      "node's JSON, or the save fails, nothing is changed (exit status 1).\n"
      "Prints one line per change, as watch does (with the values with --diff),\n"
      "and nothing when nothing differs; the exit status is then 0, whether anything\n"
      "changed or not.");
  return {apply, [&options] {
            options.apply.json = options.json;
            morv_tool::ApplyCommand(Target(options), options.file, options.apply, std::cout);
          }};
}

Command AddWhere(CLI::App& app, Options& options) {
  CLI::App* where =
      app.add_subcommand("where", "Show the files that the product's settings use, and its key");
  AddTarget(where, options);
  AddJson(where, options, "Print the files and the key as a JSON object");
  return {where, [&options] { morv_tool::WhereCommand(Target(options), options.json, std::cout); }};
}

Command AddWatch(CLI::App& app, Options& options) {
  CLI::App* watch = app.add_subcommand(
      "watch", "Print each change to the product's settings as it happens, until interrupted");
  AddTarget(watch, options);
  watch->add_option("KEY", options.key,
                    "The key to watch (a/b), with everything below it; the product's node if "
                    "left out");
  AddJson(watch, options,
          "Print one JSON object per change: {\"change\", \"path\", \"old\", \"new\"}");
  watch->footer(
      "Prints one line per value that changes, whichever program changed it:\n"
      "  added PATH (KIND) VALUE\n"
      "  removed PATH (KIND) VALUE\n"
      "  changed PATH: (KIND) OLD -> (KIND) NEW\n"
      "PATH is relative to the watched key. Ends on SIGINT (Ctrl-C) or SIGTERM, with\n"
      "exit status 0.");
  return {watch, [&options] {
            morv_tool::WatchCommand(Target(options), options.key, options.json, std::cout);
          }};
}

Command AddProducts(CLI::App& app, Options& options) {
  CLI::App* products =
      app.add_subcommand("products", "List the products that have settings, one per line");
  products->add_flag("--installer", options.installer,
                     "List the products that the installer recorded (Install/ in the shared file)");
  AddJson(products, options, "Print a JSON array of the product ids");
  return {products,
          [&options] { morv_tool::ProductsCommand(options.installer, options.json, std::cout); }};
}

// Runs the command that the command line chose; prints a failure and
// returns its exit status.
int Run(const std::vector<Command>& commands) {
  try {
    for (const Command& command : commands) {
      if (command.app->parsed()) command.run();
    }
  } catch (const morv_tool::ToolError& error) {
    std::cout.flush();
    std::cerr << kName << ": " << error.what() << "\n";
    return error.GetStatus();
  } catch (const std::exception& error) {
    std::cout.flush();
    std::cerr << kName << ": " << error.what() << "\n";
    return morv_tool::kFailure;
  }
  std::cout.flush();
  return std::cout ? morv_tool::kSuccess : morv_tool::kFailure;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app(kDescription, kName);
  app.set_version_flag("--version", std::string(kName) + " " + MORV_VERSION,
                       "Print the version and exit");
  app.require_subcommand(1, 1);
  app.footer(kFooter);
  const std::vector<Command> commands = {AddRead(app, options),   AddWrite(app, options),
                                         AddDelete(app, options), AddList(app, options),
                                         AddExport(app, options), AddImport(app, options),
                                         AddApply(app, options),  AddWhere(app, options),
                                         AddWatch(app, options),  AddProducts(app, options)};

  const std::string unknown = UnknownCommand(app, argc, argv);
  if (!unknown.empty()) {
    std::cerr << kName << ": " << unknown << "\nRun " << kName << " --help for more information.\n";
    return morv_tool::kUsageError;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
      return app.exit(error);  // --help and --version, on standard output
    }
    std::cerr << kName << ": " << error.what() << "\n"
              << "Run " << kName << " --help, or " << kName
              << " COMMAND --help, for more information.\n";
    return morv_tool::kUsageError;
  }
  return Run(commands);
}
