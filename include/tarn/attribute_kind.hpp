// Internal: what browsers and scripts do with the value of each attribute.
#ifndef TARN_ATTRIBUTE_KIND_HPP
#define TARN_ATTRIBUTE_KIND_HPP

#include <cstddef>
#include <string_view>

#include "characters.hpp"

namespace tarn::detail {

enum class Kind : unsigned char {
  kUnknown,    // not in the table
  kText,       // any text
  kId,         // any text: names one element, or several
  kUrl,        // a URL that the visitor follows, or of an image, a sound or a video
  kOwnUrl,     // a URL of code, of a page, or that receives a form
  kOwnUrls,    // several URLs, separated by spaces or commas, and perhaps widths or densities
  kLink,       // kUrl or kOwnUrl, depending on the element
  kSource,     // kUrl or kOwnUrl, depending on the element
  kParameter,  // kOwnUrl in a param element, otherwise kText
  kMeta,       // a time and a URL in a meta element that reloads the page, otherwise kText
  kAnimation,  // values for another attribute, separated by semicolons, each of which may be a URL
  kAnimated,   // the name of that attribute
  kScript,     // a script
  kStyle,      // a style sheet
  kPage,       // a page
  kTemplate    // read by a template engine, such as Vue, Alpine or htmx
};

struct KindOfName {
  // An array, because each start of a script would have to relocate a pointer.
  char name[15];
  Kind kind;
};

// All attributes that are neither text nor the name of an element, in alphabetical order. Those that
// begin with "on" are scripts, too.
inline constexpr KindOfName kKinds[] = {
    {"action", Kind::kOwnUrl},
    {"altimg", Kind::kUrl},
    {"archive", Kind::kOwnUrls},
    {"attributename", Kind::kAnimated},
    {"attributionsrc", Kind::kOwnUrls},
    {"background", Kind::kUrl},
    {"by", Kind::kAnimation},
    {"cite", Kind::kUrl},
    {"classid", Kind::kOwnUrl},
    {"code", Kind::kOwnUrl},
    {"codebase", Kind::kOwnUrl},
    {"content", Kind::kMeta},
    {"data", Kind::kOwnUrl},
    {"definitionurl", Kind::kUrl},
    {"dynsrc", Kind::kUrl},
    {"formaction", Kind::kOwnUrl},
    {"from", Kind::kAnimation},
    {"handler", Kind::kOwnUrl},
    {"href", Kind::kLink},
    {"icon", Kind::kUrl},
    {"imagesrcset", Kind::kOwnUrls},
    {"longdesc", Kind::kUrl},
    {"lowsrc", Kind::kUrl},
    {"manifest", Kind::kOwnUrl},
    {"object", Kind::kOwnUrl},
    {"ping", Kind::kOwnUrls},
    {"pluginspage", Kind::kUrl},
    {"poster", Kind::kUrl},
    {"script", Kind::kTemplate},
    {"src", Kind::kSource},
    {"srcdoc", Kind::kPage},
    {"srcset", Kind::kOwnUrls},
    {"style", Kind::kStyle},
    {"to", Kind::kAnimation},
    {"value", Kind::kParameter},
    {"values", Kind::kAnimation},
    {"xlink:href", Kind::kLink},
    {"xml:base", Kind::kOwnUrl},
};

// The other attributes of HTML, SVG and MathML. These lists are searched only if a value would be
// refused in an unknown attribute.
inline constexpr char kIds[] =
    " anchor commandfor contextmenu for form glyphref headers id in in2 interestfor itemref "
    "list menu name observer popovertarget radiogroup usemap xml:id xref ";
inline constexpr char kTexts[] =
    " abbr about accent accent-height accentunder accept accept-charset accesskey accumulate "
    "actiontype additive align alignment-baseline alink allow allowfullscreen "
    "allowpaymentrequest allowusermedia alpha alphabetic alt altimg-height altimg-valign "
    "altimg-width alttext amplitude arabic-form as ascent async attributetype autocapitalize "
    "autocomplete autocorrect autofocus autopictureinpicture autoplay autosave axis azimuth "
    "bandwidth basefrequency baseline-shift baseprofile bbox begin behavior bevelled bgcolor "
    "bias blocking border bordercolor bottommargin browsingtopics calcmode cap-height capture "
    "cellpadding cellspacing char charoff charset checked class clear clip clip-path clip-rule "
    "clippathunits close closedby codetype color color-interpolation "
    "color-interpolation-filters color-profile color-rendering colorspace cols colspan "
    "columnalign columnlines columnspacing columnspan command compact contenteditable "
    "contentscripttype contentstyletype controls controlslist coords credentialless crossorigin "
    "csp cursor cx cy d datafld dataformatas datasrc datatype datetime declare decoding default "
    "defaultaction defer denomalign depth descent diffuseconstant dir direction directory "
    "dirname disabled disablepictureinpicture disableremoteplayback display displaystyle "
    "divisor dominant-baseline download draggable dur dx dy edgemode editable elementtiming "
    "elevation enable-background encoding enctype end enterkeyhint event exponent exportparts "
    "externalresourcesrequired face fence fetchpriority fill fill-opacity fill-rule filter "
    "filterres filterunits flood-color flood-opacity focusable focushighlight font-family "
    "font-size font-size-adjust font-stretch font-style font-variant font-weight format "
    "formenctype formmethod formnovalidate formtarget fr frame frameborder fx fy g1 g2 "
    "glyph-name glyph-orientation-horizontal glyph-orientation-vertical gradienttransform "
    "gradientunits hanging headingoffset headingreset height hidden hidefocus high horiz-adv-x "
    "horiz-origin-x horiz-origin-y hreflang hspace http-equiv ideographic image-rendering "
    "imagesizes importance incremental inert initialvisibility inputmode integrity intercept is "
    "ismap isolation itemid itemprop itemscope itemtype k k1 k2 k3 k4 kernelmatrix "
    "kernelunitlength kerning keypoints keysplines keytimes kind label lang language largeop "
    "leftmargin length lengthadjust letter-spacing lighting-color limitingconeangle "
    "linethickness link loading local loop loopend loopstart low lquote lspace marginheight "
    "marginwidth marker-end marker-mid marker-start markerheight markerunits markerwidth mask "
    "mask-type maskcontentunits maskunits mathbackground mathcolor mathematical mathsize "
    "mathvariant max maxlength maxsize mayscript media mediacharacterencoding "
    "mediacontentencodings mediasize mediatime method methods min minlength minsize "
    "mix-blend-mode mode movablelimits multiple muted nav-down nav-down-left nav-down-right "
    "nav-left nav-next nav-prev nav-right nav-up nav-up-left nav-up-right nohref nomodule nonce "
    "noresize noshade notation novalidate nowrap numalign numoctaves offset opacity open "
    "operator optimum order orient orientation origin overflow overlay overline-position "
    "overline-thickness paint-order panose-1 part path pathlength pattern patterncontentunits "
    "patterntransform patternunits phase placeholder playbackorder playsinline "
    "pointer-events points pointsatx pointsaty pointsatz popover popovertargetaction preload "
    "preservealpha preserveaspectratio primitiveunits privatetoken profile prompt propagate "
    "property pubdate r radius readonly referrerpolicy refx refy rel rendering-intent "
    "repeatcount repeatdur required requiredextensions requiredfeatures requiredfonts "
    "requiredformats resource restart result results rev reversed rightmargin role rotate "
    "rowalign rowheight rowlines rows rowspacing rowspan rquote rspace rules rx ry sandbox "
    "scale scheme scope scriptlevel scriptminsize scriptsizemultiplier scrollamount scrolldelay "
    "scrolling seed selected selection separator separators shadowrootclonable "
    "shadowrootcustomelementregistry shadowrootdelegatesfocus shadowrootmode "
    "shadowrootserializable shape shape-rendering sharedstoragewritable side size sizes slope "
    "slot snapshottime spacing span specularconstant specularexponent spellcheck spreadmethod "
    "srclang standby start startoffset stddeviation stemh stemv step stitchtiles stop-color "
    "stop-opacity stretchy strikethrough-position strikethrough-thickness string stroke "
    "stroke-dasharray stroke-dashoffset stroke-linecap stroke-linejoin stroke-miterlimit "
    "stroke-opacity stroke-width subscriptshift summary supscriptshift surfacescale switch "
    "symmetric syncbehavior syncbehaviordefault syncmaster synctolerance synctolerancedefault "
    "systemlanguage tabindex tablevalues target targetx targety text text-anchor "
    "text-decoration text-orientation text-overflow text-rendering textlength timelinebegin "
    "title topmargin transform transform-origin transformbehavior translate truespeed type "
    "typemustmatch typeof u1 u2 underline-position underline-thickness unicode unicode-bidi "
    "unicode-range units-per-em unselectable urn v-alphabetic v-hanging v-ideographic "
    "v-mathematical valign valuetype vector-effect version vert-adv-y vert-origin-x "
    "vert-origin-y viewbox viewtarget virtualkeyboardpolicy visibility vlink voffset vspace "
    "webkitdirectory white-space width widths word-spacing wrap writing-mode writingsuggestions "
    "x x-height x1 x2 xchannelselector xlink:actuate xlink:arcrole xlink:role xlink:show "
    "xlink:title xlink:type xml:lang xml:space xmlns xmlns:xlink y y1 y2 ychannelselector z "
    "zoomandpan ";

// An attribute belongs to a template engine if one of these words and a "-" or "_" begin its name,
// after "data-" or not.
inline constexpr std::string_view kTemplateWords[] = {"bind"sv, "bindon"sv, "dojo"sv, "hx"sv,
                                                      "ng"sv,   "on"sv,     "rv"sv,   "script"sv,
                                                      "sse"sv,  "v"sv,      "ws"sv};
// After "data-", these are common in other attributes.
inline constexpr std::string_view kMoreTemplateWords[] = {"fx"sv, "up"sv, "x"sv};
inline constexpr std::string_view kTemplateNames[] = {"_"sv, "bind"sv, "data-bind"sv,
                                                      "data-script"sv};

// Orders a name, in any case, and one in small letters.
inline int compare(std::string_view name, std::string_view other) noexcept {
  for (std::size_t i = 0; i < name.size() && i < other.size(); ++i) {
    const char c = static_cast<char>(is_letter(name[i]) ? name[i] | 0x20 : name[i]);
    if (c != other[i]) return c < other[i] ? -1 : 1;
  }
  return name.size() == other.size() ? 0 : name.size() < other.size() ? -1 : 1;
}

// Whether a list of words, with a space before and after each of them, contains the name. Compilers
// measure a long array at once, and a long std::string_view letter by letter.
template <std::size_t kSize>
bool is_listed(std::string_view name, const char (&words)[kSize]) noexcept {
  const std::string_view list(words, kSize - 1);
  bool found = false;
  for (std::size_t start = 1; start < list.size() && !found;) {
    const std::size_t end = list.find(' ', start);
    found = compare(name, {list.data() + start, end - start}) == 0;
    start = end + 1;
  }
  return found;
}

inline bool is_plain_in_name(char c) noexcept { return is_alphanumeric(c) || c == '-' || c == '_'; }

// Template engines read names such as "@click", ":href", "[innerHTML]", "wire:click", "href.bind",
// "v-html" and "data-hx-on".
template <class = void>
bool is_template_name(std::string_view name) noexcept {
  if (!all_of(name, is_plain_in_name)) return true;
  if (is_one_of(name, kTemplateNames)) return true;
  const bool has_data = begins_with(name, "data") && name.size() > 4 && is_among(name[4], "-_");
  if (has_data) name.remove_prefix(5);
  const std::size_t size = name.find_first_of("-_");
  if (size >= name.size() - 1) return false;
  const std::string_view word(name.data(), size);
  return is_one_of(word, kTemplateWords) || (!has_data && is_one_of(word, kMoreTemplateWords));
}

// The kind of an attribute. Looks at kIds and kTexts only if it must, so an attribute that is text
// may be kUnknown.
template <class = void>
Kind quick_kind_of(std::string_view name) noexcept {
  if (begins_with(name, "on")) return Kind::kScript;
  std::size_t first = 0;
  std::size_t end = sizeof kKinds / sizeof *kKinds;
  while (first < end) {
    const std::size_t middle = first + (end - first) / 2;
    const int order = compare(name, kKinds[middle].name);
    if (order == 0) return kKinds[middle].kind;
    if (order < 0) {
      end = middle;
    } else {
      first = middle + 1;
    }
  }
  if (is_template_name(name) && !is_listed(name, kTexts) && !is_listed(name, kIds)) {
    return Kind::kTemplate;
  }
  return begins_with(name, "data-") || begins_with(name, "aria-") ? Kind::kText : Kind::kUnknown;
}

// The kind of an attribute.
template <class = void>
Kind kind_of(std::string_view name) noexcept {
  const Kind kind = quick_kind_of(name);
  if (!same(kind, Kind::kUnknown)) return kind;
  if (is_listed(name, kTexts)) return Kind::kText;
  return is_listed(name, kIds) ? Kind::kId : Kind::kUnknown;
}

}  // namespace tarn::detail

#endif  // TARN_ATTRIBUTE_KIND_HPP
