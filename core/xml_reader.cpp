#include "core/xml_reader.h"

#include <cstring>

namespace {

bool IsNameStart(char c) {
    unsigned char u = static_cast<unsigned char>(c);
    return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || c == '_' || c == ':' || u >= 0x80;
}
bool IsNameChar(char c) { return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }
bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool StartsWith(std::string_view text, size_t at, std::string_view prefix) {
    return text.size() - at >= prefix.size() && text.compare(at, prefix.size(), prefix) == 0;
}

// The character a reference between '&' and ';' stands for, or -1.
int EntityChar(std::string_view ref) {
    if (ref == "amp") return '&';
    if (ref == "lt") return '<';
    if (ref == "gt") return '>';
    if (ref == "quot") return '"';
    if (ref == "apos") return '\'';
    if (ref.size() < 2 || ref[0] != '#') return -1;
    bool hex = ref[1] == 'x';
    size_t i = hex ? 2 : 1;
    if (i >= ref.size()) return -1;
    long value = 0;
    for (; i < ref.size(); ++i) {
        char c = ref[i];
        int digit;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (hex && c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        else if (hex && c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        else return -1;
        value = value * (hex ? 16 : 10) + digit;
        if (value > 255) return -1;  // the file is in an 8-bit code page
    }
    return value >= 1 ? static_cast<int>(value) : -1;
}

}  // namespace

std::string DecodeXmlEntities(std::string_view raw) {
    std::string out;
    out.reserve(raw.size());
    for (size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] == '&') {
            // Entity names are short; a far-away ';' belongs to other text.
            size_t semi = raw.find(';', i + 1);
            if (semi != std::string_view::npos && semi - i <= 12) {
                int c = EntityChar(raw.substr(i + 1, semi - i - 1));
                if (c >= 0) {
                    out += static_cast<char>(c);
                    i = semi;
                    continue;
                }
            }
        }
        out += raw[i];
    }
    return out;
}

std::string EscapeXmlAttribute(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

XmlPullReader::XmlPullReader(std::string_view text) : text_(text) {
    if (StartsWith(text_, 0, "\xEF\xBB\xBF")) at_ = 3;
}

XmlPullReader::Node XmlPullReader::Fail() {
    done_ = true;
    final_ = Node::Error;
    at_ = text_.size();
    name_.clear();
    attributes_.clear();
    return Node::Error;
}

bool XmlPullReader::SkipPast(std::string_view end) {
    size_t found = text_.find(end, at_);
    if (found == std::string_view::npos) return false;
    at_ = found + end.size();
    return true;
}

// "<!" declarations such as DOCTYPE: up to the '>' that is outside quotes and
// outside the internal subset's brackets, whose own declarations and
// comments may hold '>' characters.
bool XmlPullReader::SkipDeclaration() {
    int depth = 0;
    while (at_ < text_.size()) {
        char c = text_[at_];
        if (StartsWith(text_, at_, "<!--")) {
            at_ += 4;
            if (!SkipPast("-->")) return false;
            continue;
        }
        if (c == '"' || c == '\'') {
            size_t close = text_.find(c, at_ + 1);
            if (close == std::string_view::npos) return false;
            at_ = close + 1;
            continue;
        }
        ++at_;
        if (c == '[') ++depth;
        else if (c == ']' && depth > 0) --depth;
        else if (c == '<') ++depth;  // a markup declaration inside the subset
        else if (c == '>') {
            if (depth == 0) return true;
            --depth;
        }
    }
    return false;
}

bool XmlPullReader::ReadName(std::string* out) {
    size_t start = at_;
    if (at_ >= text_.size() || !IsNameStart(text_[at_])) return false;
    while (at_ < text_.size() && IsNameChar(text_[at_])) ++at_;
    out->assign(text_.substr(start, at_ - start));
    return true;
}

void XmlPullReader::SkipSpace() {
    while (at_ < text_.size() && IsSpace(text_[at_])) ++at_;
}

bool XmlPullReader::ReadStartTag() {
    ++at_;  // '<'
    attributes_.clear();
    if (!ReadName(&name_)) return false;
    for (;;) {
        size_t before = at_;
        SkipSpace();
        if (at_ >= text_.size()) return false;
        if (text_[at_] == '>') {
            ++at_;
            open_.push_back(name_);
            return true;
        }
        if (StartsWith(text_, at_, "/>")) {
            at_ += 2;
            return true;
        }
        std::string attrName;
        if (at_ == before || !ReadName(&attrName)) return false;
        SkipSpace();
        if (at_ >= text_.size() || text_[at_] != '=') return false;
        ++at_;
        SkipSpace();
        if (at_ >= text_.size() || (text_[at_] != '"' && text_[at_] != '\'')) return false;
        char quote = text_[at_++];
        size_t close = text_.find(quote, at_);
        if (close == std::string_view::npos) return false;
        std::string_view raw = text_.substr(at_, close - at_);
        if (raw.find('<') != std::string_view::npos) return false;
        attributes_.emplace_back(std::move(attrName), DecodeXmlEntities(raw));
        at_ = close + 1;
    }
}

bool XmlPullReader::ReadEndTag() {
    at_ += 2;  // "</"
    attributes_.clear();
    if (!ReadName(&name_)) return false;
    SkipSpace();
    if (at_ >= text_.size() || text_[at_] != '>') return false;
    ++at_;
    if (open_.empty() || open_.back() != name_) return false;
    open_.pop_back();
    return true;
}

XmlPullReader::Node XmlPullReader::Next() {
    if (done_) return final_;
    for (;;) {
        size_t lt = text_.find('<', at_);
        if (lt == std::string_view::npos) {
            // Character data runs to the end: complete only when every
            // element was closed.
            if (!open_.empty()) return Fail();
            done_ = true;
            final_ = Node::End;
            at_ = text_.size();
            name_.clear();
            attributes_.clear();
            return Node::End;
        }
        at_ = lt;
        bool ok;
        if (StartsWith(text_, at_, "<!--")) {
            at_ += 4;
            ok = SkipPast("-->");
        } else if (StartsWith(text_, at_, "<![CDATA[")) {
            at_ += 9;
            ok = !open_.empty() && SkipPast("]]>");
        } else if (StartsWith(text_, at_, "<?")) {
            at_ += 2;
            ok = SkipPast("?>");
        } else if (StartsWith(text_, at_, "<!")) {
            // Declarations (DOCTYPE) belong before the root element.
            at_ += 2;
            ok = open_.empty() && SkipDeclaration();
        } else if (StartsWith(text_, at_, "</")) {
            if (!ReadEndTag()) return Fail();
            return Node::EndElement;
        } else {
            if (!ReadStartTag()) return Fail();
            return Node::StartElement;
        }
        if (!ok) return Fail();
    }
}

const std::string* XmlPullReader::Attribute(std::string_view name) const {
    for (const auto& a : attributes_)
        if (a.first == name) return &a.second;
    return nullptr;
}
