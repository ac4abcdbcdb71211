// The commands that brand a terminal.
#include <limits>

#include "simulator/portal/CommandLineParser.h"
#include "simulator/portal/Limits.h"
#include "simulator/portal/Shapes.h"

namespace portal {
namespace {

constexpr char kBrandingHelp[] =
    "What is not given stays as it is. The photos of the sign-in screen are the command "
    "\"photo\"'s.\n"
    "A terminal whose branding is withdrawn removes what it has of it at its next check-in.\n";

constexpr char kPhotoHelp[] =
    "A photo is of the branding that a terminal has, in the order in which they are added. The\n"
    "portal keeps one copy of a photo, however many terminals show it, until none does.\n";

constexpr char kPhotoAddHelp[] =
    "Kind and size are read from the photo when it is a JPEG or a PNG; what is given here counts\n"
    "instead. A photo that the terminal shows already takes what is said about it now, and keeps "
    "its\n"
    "credit unless another is given; \"\": none.\n";

/// So few digits of a digest that they were hardly typed by accident.
constexpr std::size_t kLeastDigestDigits = 4;
constexpr std::size_t kDigestDigits = 64;

std::string CheckContentType(const std::string& text) {
  return IsContentType(text) ? "" : "not a content type of pictures: " + text;
}

std::string CheckDigest(const std::string& text) {
  const bool digits = text.find_first_not_of("0123456789abcdefABCDEF") == text.npos;
  if (digits && text.size() >= kLeastDigestDigits && text.size() <= kDigestDigits) return "";
  return "not 4 to 64 hexadecimal digits: " + text;
}

}  // namespace

void CommandLineParser::addBranding() {
  CLI::App* const command = addForTerminal(
      "branding", "Set what a terminal's sign-in screen shows, or withdraw it",
      [this](const Commands& commands) {
        return _given.none ? commands.change(_given.terminal,
                                             {{"branding", nullptr}, {"tenantId", nullptr}})
                           : commands.branding(_given.terminal, _given.branding);
      });
  BrandingChange& given = _given.branding;
  const std::vector<CLI::Option*> settings = {
      command
          ->add_option("--display-name", given.displayName,
                       "The name to show, of at most 120 characters")
          ->check(CheckLength(1, kMaxDisplayName)),
      command
          ->add_option("--subtitle", given.subtitle,
                       "The line below it, of at most 240 characters; \"\": none")
          ->check(CheckLength(0, kMaxSubtitle)),
      command
          ->add_option("--tenant", given.tenant, "The id of the tenant it belongs to; \"\": none")
          ->check(CheckLength(0, kMaxTenantId))};
  CLI::Option* const none = command->add_flag(
      "--none,--withdraw", _given.none, "Withdraw the branding, its photos and the tenant's id");
  for (CLI::Option* const setting : settings) none->excludes(setting);
  command->parse_complete_callback([this] {
    const BrandingChange& change = _given.branding;
    if (!change.displayName && !change.subtitle && !change.tenant && !_given.none)
      throw CLI::RequiredError("--display-name, --subtitle, --tenant or --none");
  });
  command->footer(kBrandingHelp + _app.get_footer());
}

void CommandLineParser::addPhoto() {
  CLI::App* const photo = takeTerminal(
      _app.add_subcommand("photo", "Add, list or remove the photos of a terminal's branding"));
  photo->require_subcommand(1);
  addPhotoAdd(photo);
  nest(photo, "list", "List the photos",
       [this](const Commands& commands) { return commands.photos(_given.terminal); });
  nest(photo, "remove", "Remove a photo",
       [this](const Commands& commands) {
         return commands.removePhoto(_given.terminal, _given.photo);
       })
      ->add_option("DIGEST", _given.photo, "Its SHA-256, or at least the first four digits of it")
      ->required()
      ->check(CheckDigest);
  photo->footer(kPhotoHelp + _app.get_footer());
}

void CommandLineParser::addPhotoAdd(CLI::App* photo) {
  CLI::App* const command =
      nest(photo, "add", "Add a photo of at most 15 MiB", [this](const Commands& commands) {
        return commands.addPhoto(_given.terminal, _given.photo, _given.details);
      });
  const CLI::Range size(1, std::numeric_limits<int>::max());
  PhotoDetails& given = _given.details;
  command->add_option("FILE", _given.photo, "The photo")->required();
  command->add_option("--credit", given.credit, "Whose photo it is, in at most 240 characters")
      ->check(CheckLength(0, kMaxCredit));
  command->add_option("--content-type", given.contentType, "Its kind, such as image/webp")
      ->check(CheckContentType);
  command->add_option("--width", given.width, "Its width in pixels")->check(size);
  command->add_option("--height", given.height, "Its height in pixels")->check(size);
  command->footer(kPhotoAddHelp + _app.get_footer());
}

}  // namespace portal
