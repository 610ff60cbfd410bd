// tavctl: calls, opens, serves and observes the services of TAV_IDL from the command line.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <iostream>
#include <sstream>
#include <system_error>

#include "commandline.h"
#include "connection.h"
#include "print.h"

namespace tavctl {

namespace {

// Shows positional arguments by their text, as in the manual, and not by a name of their own.
class Help : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string line = "Usage: " + name + " [OPTIONS]";
        for (const CLI::Option* option :
             app->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
            line += " " + option->get_option_text();
        }
        return line + (app->get_subcommands({}).empty() ? "\n" : " VERB ...\n");
    }

    std::string make_option_name(const CLI::Option* option, bool isPositional) const override {
        return isPositional ? option->get_option_text()
                            : Formatter::make_option_name(option, isPositional);
    }

    std::string make_option(const CLI::Option* option, bool isPositional) const override {
        return inColumns(make_option_name(option, isPositional) + make_option_opts(option),
                         make_option_desc(option), 28);
    }

    std::string make_subcommand(const CLI::App* verb) const override {
        return inColumns(verb->get_name(), verb->get_description(), 12);
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_positional() ? "" : Formatter::make_option_opts(option);
    }

    // Newer CLI11 breaks the lines of a footer; the example must stay whole to be pasted.
    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        const std::string help = Formatter::make_help(app, std::move(name), mode);
        return help.substr(0, help.find_last_not_of('\n') + 1) + "\n\n" + app->get_footer() + "\n";
    }

    std::string make_footer(const CLI::App* /*app*/) const override { return ""; }

private:
    // The description begins in that column, and no line has more than 80 characters.
    static std::string inColumns(const std::string& name, const std::string& description,
                                 std::size_t column) {
        constexpr std::size_t kWidth = 80;
        std::string lines;
        std::string line = padded("  " + name, column);
        if (line.size() > column) {
            lines = line + "\n";
            line.assign(column, ' ');
        }
        std::istringstream words(description);
        for (std::string word; words >> word;) {
            if (line.size() + 1 + word.size() > kWidth) {
                lines += line + "\n";
                line.assign(column, ' ');
            }
            line += " " + word;
        }
        return lines + line + "\n";
    }
};

int start(int argc, char** argv) {
    // A closed pipe is noticed by the write that fails.
    (void)signal(SIGPIPE, SIG_IGN);
    // Scripts start commands in the background with SIGINT ignored. Each verb has to end by it.
    (void)signal(SIGINT, SIG_DFL);
    // No socket must take the place of a standard stream that is closed. Using it still fails.
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0) {
            (void)::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }

    CLI::App app("Calls, opens, serves and observes the services of TAV_IDL.", "tavctl");
    app.formatter(std::make_shared<Help>());
    app.set_version_flag("--version", "tavctl " TAVCTL_VERSION);
    app.require_subcommand(0, 1);
    app.footer("tavctl VERB --help explains a verb; man tavctl explains all of them.");
    Run run;
    addVerbs(app, run);

    int status = 0;
    try {
        app.parse(argc, argv);
        if (!run) {
            throw Failure(Exit::Usage, "a verb is missing", "see tavctl --help");
        }
        status = run();
    } catch (const CLI::Success& asked) {
        std::ostringstream text;  // --help, --version
        app.exit(asked, text, text);
        print(text.str());
    } catch (const CLI::ParseError& failure) {
        const auto verbs = app.get_subcommands();
        status = printError(
            {Exit::Usage, failure.what(),
             "see tavctl " + (verbs.empty() ? "" : verbs[0]->get_name() + " ") + "--help"});
    } catch (const Failure& failure) {
        status = printError(failure);
    } catch (const std::invalid_argument& thrown) {
        status = printError(failureFrom(thrown));
    } catch (const std::system_error& thrown) {
        status = printError(failureFrom(thrown));
    }
    return status == 0 && output.lost ? static_cast<int>(Exit::Broken) : status;
}

}  // namespace

}  // namespace tavctl

int main(int argc, char** argv) try {
    return tavctl::start(argc, argv);
} catch (const std::exception& failure) {
    std::cerr << "tavctl: internal error: " << failure.what() << '\n';
    return static_cast<int>(tavctl::Exit::Broken);
}
