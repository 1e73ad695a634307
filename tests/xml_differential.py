#!/usr/bin/env python3
"""plistlib's side of the XML property-list differential tests.

Writes XML property lists of every kind of value and every edge of the
format, valid and invalid (number, date and base64 spellings, text with
entities, character references, CDATA, comments and processing
instructions, keys and structure, nesting, prologs, document type
declarations and entities, encodings and byte-order marks), and says for
each what plistlib reads from it, in the canonical form of
plist_differential.py's describe().

    xml_differential.py generate DIR COUNT SEED
        Writes the edge files DIR/e_*.plist and COUNT random files
        DIR/rNNNN.plist, and their verdicts in DIR/verdicts.
    xml_differential.py list SOURCE VERDICTS
        Writes the verdicts on every SOURCE/*.plist in the file VERDICTS.

The verdicts file holds, for each NAME.plist, a line "@@ NAME KIND" and then
    KIND txt     plistlib reads it: the listing of its tree
    KIND error   plistlib refuses it: the exception (for the reader), a line
    KIND expect  plistlib reads it, but the store refuses it on purpose: a
                 line "refuse CODE why", CODE the refusal the store gives
The store refuses on purpose (where plistlib reads on): integers outside
[-2^63, 2^64-1]; "_" digit separators and non-ASCII digits in integers and
reals; containers nested deeper than 128 and elements deeper than 1024;
encodings that expat does not know itself (pyexpat adds Python's 8-bit
codecs); a root that is not a dictionary (plistlib also returns None for
a file without any value). Where several apply, the first one met in the
file's order decides (the root last).
"""
import base64
import codecs
import datetime
import io
import os
import plistlib
import random
import re
import sys
import unicodedata

sys.dont_write_bytecode = True  # (the source tree stays as it is)
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from plist_differential import describe  # noqa: E402

MAX_NESTING = 128  # containers, the root counted as 1
MAX_ELEMENTS = 1024  # elements of any name
EXPAT_ENCODINGS = {"utf-8", "utf-16", "utf-16be", "utf-16le", "iso-8859-1", "us-ascii"}

# --- The oracle -------------------------------------------------------------------


def has_deliberate_digits(raw):
    """Whether number text holds what the store refuses and Python's int()
    and float() take: "_" separators or digits other than ASCII ones."""
    return "_" in raw or any(
        ord(c) > 0x7F and unicodedata.decimal(c, None) is not None for c in raw)


class Observer(plistlib._PlistParser):
    """plistlib's XML parser, unchanged, noting on the way the first thing
    that the store refuses on purpose."""

    def __init__(self):
        super().__init__(dict_type=dict)
        self.depth = 0
        self.refusal = None

    def note(self, code, why):
        if self.refusal is None:
            self.refusal = (code, why)

    def handle_begin_element(self, element, attrs):
        self.depth += 1
        if self.depth > MAX_ELEMENTS:
            self.note("kTooDeep", "elements nested deeper than %d" % MAX_ELEMENTS)
        super().handle_begin_element(element, attrs)
        if len(self.stack) > MAX_NESTING:
            self.note("kTooDeep", "containers nested deeper than %d" % MAX_NESTING)

    def handle_end_element(self, element):
        super().handle_end_element(element)
        self.depth -= 1

    def end_integer(self):
        raw = "".join(self.data)
        super().end_integer()
        value = int(raw, 16) if raw.startswith(("0x", "0X")) else int(raw)
        if not -(1 << 63) <= value < 1 << 64:
            self.note("kNotAPropertyList", "integer out of 64-bit range: %s" % raw.strip())
        if has_deliberate_digits(raw):
            self.note("kNotAPropertyList", "integer with '_' or non-ASCII digits")

    def end_real(self):
        raw = "".join(self.data)
        super().end_real()
        if has_deliberate_digits(raw):
            self.note("kNotAPropertyList", "real with '_' or non-ASCII digits")


DECLARATION = re.compile(r"""\ufeff?<\?xml\s[^>]*?encoding\s*=\s*(["'])(.*?)\1""")


def declared_encoding(data):
    """The encoding that the XML declaration at the start names, or None."""
    if data.startswith((codecs.BOM_UTF16_BE, codecs.BOM_UTF16_LE)):
        head = data[:400].decode("utf-16", "replace")
    else:
        head = data[len(codecs.BOM_UTF8):400] if data.startswith(codecs.BOM_UTF8) else data[:400]
        head = head.decode("latin-1")
    match = DECLARATION.match(head)
    return match.group(2) if match else None


def verdict(data):
    """("txt", listing), ("error", why plistlib refuses) or ("expect",
    "refuse CODE why") for the bytes of a file."""
    if not plistlib._is_fmt_xml(data[:32]):
        try:  # what plistlib.loads would try next: the binary format, or nothing
            plistlib.loads(data)
        except Exception as error:
            return "error", "%s: %s" % (type(error).__name__, error)
        return "error", "not an XML property list (the XML side lists nothing else)"
    observer = Observer()
    try:
        root = observer.parse(io.BytesIO(data))
    except Exception as error:
        return "error", "%s: %s" % (type(error).__name__, str(error)[:200])
    encoding = declared_encoding(data)
    if encoding is not None and encoding.lower() not in EXPAT_ENCODINGS:
        observer.refusal = ("kNotAPropertyList",
                            "encoding %s read by pyexpat through a Python codec" % encoding)
    if not isinstance(root, dict):
        observer.note("kNotADictionary", "the root is %s" % type(root).__name__)
    if observer.refusal is not None:
        return "expect", "refuse %s %s" % observer.refusal
    lines = []
    describe(root, "", lines)
    return "txt", "\n".join(lines) + "\n"


def verdict_entry(name, data):
    """The kind of verdict on the file `name` of `data`, and its entry in a
    verdicts file."""
    kind, text = verdict(data)
    if kind != "txt":
        text = text.replace("\n", " ") + "\n"
    return kind, "@@ %s %s\n%s" % (name, kind, text)


# --- Spellings of values ----------------------------------------------------------
# Each is the raw XML between the tags, as a str: "\udcXX" stands for the
# byte XX (invalid UTF-8; see encode()).

INTEGERS = [
    "0", "1", "-1", "+1", "+0", "-0", "00", "010", "-010", "007", "0000000000000000000000042",
    "42", " 42", "42 ", "  42  ", "\n42\n", "\t-7\t", "\r\n5\r\n", "&#13;5", "&#9;5&#10;",
    "\u00a05", "5\u00a0", "\u20035", "\u30005", "\u20285", "&#x85;5", "5&#x2009;", "\u200b5",
    "\ufeff5", "+-1", "--1", "- 1", "+ 1", "1 2", "1e3", "1E3", "1.0", "1.", ".1", "abc",
    "5abc", "abc5", "", " ", "0x1F", "0X1f", "0xff", "0XFF", "0x0", "0x", "0x-1", "-0x1",
    "+0x1", " 0x1", "0x1 ", "0x 1", "0xg", "0x1g", "0b101", "0o17", "0x_1f", "0x1_f", "1_000",
    "1__000", "_1", "1_", "-1_0", "\u0661\u0662\u0663", "\uff11\uff12", "1\u0663",
    "\u0967\u0968", "0x\u0661", "\U0001D7CF", "\u2460", "\u00b2",
    "9223372036854775807", "9223372036854775808", "-9223372036854775808",
    "-9223372036854775809", "18446744073709551615", "18446744073709551616",
    "-18446744073709551616", "0x7FFFFFFFFFFFFFFF", "0x8000000000000000", "0xFFFFFFFFFFFFFFFF",
    "0x10000000000000000", "0x00000000000000000000FFFFFFFFFFFFFFFF",
    "000000000000000000000018446744073709551615", "123456789012345678901234567890",
    "-123456789012345678901234567890", "4294967295", "4294967296", "-2147483649", "&#x35;",
    "&#53;&#x30;", "<![CDATA[7]]>", "<![CDATA[ 7 ]]>", "4<!-- c -->2", "4<?pi?>2",
    "1<b/>2", "<b>1</b>", "1&amp;2", "&#x2D;5", "&#x2B;5", "5<![CDATA[]]>",
]

REALS = [
    "0", "0.0", "-0.0", "+0.0", "-0", "1.5", "-2.25", "+3.75", "1e3", "1E3", "1e+3", "1e-3",
    "1.e3", ".5e1", "-.5", "+.5", ".5", "5.", ".", "-.", "e5", "1e", "1e+", "1e-", "1ee3",
    "1e3.5", "1e400", "-1e400", "1e-400", "-1e-400", "4.9e-324", "5e-324", "2e-324",
    "2.2250738585072014e-308", "2.225073858507201e-308", "1.7976931348623157e308",
    "1.7976931348623158e308", "1.7976931348623159e308", "0.1", "0.30000000000000004",
    "3.141592653589793", "9007199254740993", "123456789012345678901234567890",
    "0.000000000000000000000000000001", "1" + "0" * 400, "0." + "0" * 400 + "1",
    "inf", "-inf", "+inf", "INF", "Inf", "infinity", "-Infinity", "+INFINITY", "iNfInItY",
    "infinit", "infinityy", "in f", "nan", "NaN", "-nan", "+nan", "NAN", "nan(1)", "nanq",
    "-NaN", "0x1p3", "0x1.8p1", "0x10", "1,5", "1.5.5", "1.5abc", "abc", "", " ", " 1.5 ",
    "\n-2.5\t", "\u00a01.5", "1.5\u3000", "\u200b1.5", "1_0.5", "1.0_1", "1e1_0", "_1.0",
    "\u0661.\u0665", "\uff11.5", "1\u0665e1", "&#x31;.&#x35;", "<![CDATA[2.5]]>", "2<!--x-->.5",
    "1e0308", "1e-0308", "-0e0", "00.5", "0001.5000", "1 e3", "1e 3", "+-1.0", "--1.0",
]

DATES = [
    "2001-01-01T00:00:00Z", "2020-02-29T12:34:56Z", "2019-02-29T00:00:00Z",
    "2020-02-30T00:00:00Z", "2000-02-29T00:00:00Z", "1900-02-29T00:00:00Z",
    "2100-02-29T00:00:00Z", "2400-02-29T00:00:00Z", "0004-02-29T00:00:00Z",
    "9996-02-29T23:59:59Z", "0001-01-01T00:00:00Z", "0000-01-01T00:00:00Z",
    "9999-12-31T23:59:59Z", "1869-01-03T08:16:32Z", "2199-08-20T01:10:11Z",
    "1970-01-01T00:00:00Z", "1969-12-31T23:59:59Z", "2038-01-19T03:14:08Z",
    "2020-13-01T00:00:00Z", "2020-00-01T00:00:00Z", "2020-01-00T00:00:00Z",
    "2020-01-32T00:00:00Z", "2020-04-31T00:00:00Z", "2020-12-31T00:00:00Z",
    "2020-01-01T24:00:00Z", "2020-01-01T23:60:00Z", "2020-01-01T23:59:60Z",
    "2020-01-01T23:59:59Z", "2020Z", "2020-05Z", "2020-05-06Z", "2020-05-06T07Z",
    "2020-05-06T07:08Z", "2020-05-06T07:08:09Z", "2020-05-06T07:08:09Zjunk",
    "2020-05-06T07:08:09ZZ", "2020-05-06Zjunk", "2020-05-06T07:08:09Z ",
    "2020-05-06T07:08:09Z\n", " 2020-05-06T07:08:09Z", "\n2020-05-06T07:08:09Z",
    "2020-05-06T07:08:09", "2020-05-06T07:08:09.5Z", "2020-05-06 07:08:09Z",
    "2020-05-06t07:08:09Z", "2020-05-06T07:08:09z", "2020-05-06T07:08:09+00:00",
    "2020-5-6T07:08:09Z", "20200506T070809Z", "12020-05-06T07:08:09Z", "202-05-06T07:08:09Z",
    "\uff12\uff10\uff12\uff10-05-06T07:08:09Z", "2020-05-06T07:08:0\u0669Z", "", "Z",
    "2020-05-06T07:08Z:09", "2020-05-06T7:08:09Z", "2020-05-06T07:8:09Z", "-2020-05-06T00:00:00Z",
    "&#x32;020-05-06T07:08:09Z", "<![CDATA[2020-05-06T07:08:09Z]]>",
    "2020-05-06T07:<!--x-->08:09Z", "2020-05-06T07:08:09Z<b/>", "<b/>2020-05-06T07:08:09Z",
]

DATAS = [
    "", "AAEC", "AAECAw==", "AAECAw=", "AAECAw", "AAE", "A", "AAE=", "AA==", "AA=", "AA",
    "A===", "====", "=", "AA=A=", "AA==AAEC", "AAE=AAEC", "AAEC=AAEC", "AAEC====", "=AAEC",
    "AB==", "AAF=", " AA EC ", "\n\tAAEC\n\t", "AA\nEC", "AA\r\nEC", "AA!EC", "AA-EC", "AA_EC",
    "AA\u00e9EC", "AA\U0001F30DEC", "AAEC\u00e9", "AA.EC..", "AAEC&#10;AAEC", "<![CDATA[AAEC]]>",
    "AA<!--x-->EC", "AA<b/>EC", "////", "++++", "-_-_", "AAEC" * 100,
    "\n".join(["MDEyMzQ1Njc4OVRFU1QwMTIzNDU2Nzg5dGVzdCbDqSInKC3DqF/Dp8OgKT0rwrAk"] * 3),
    "YQ", "YQ=", "YQ==", "YWI", "YWI=", "YWJj", "Y", "YQ==YQ==", "Y=Q==", "YQ=\u00e9=",
]

STRINGS = [
    "", "plain", "  spaced  ", "\n\tindented\n", "a&amp;b", "&lt;tag&gt;", "a>b",
    "&quot;q&quot; &apos;a&apos;", "&#65;&#x42;", "&#X43;", "&#x;", "&#;", "&#65", "&amp",
    "& b", "a<b", "&#13;", "a\r\nb", "a\rb", "a\r\n\r\nb", "\r", "&#13;&#10;", "a&#xD;\nb",
    "\u00e9t\u00e9", "\u4e16\u754c", "\U0001F30D", "&#x1F30D;", "&#128525;", "\ufffd",
    "&#xFFFD;", "&#xFFFE;", "&#xFFFF;", "\ufffe", "\uffff", "&#1;", "&#0;", "&#x1F;",
    "&#x7F;", "\x7f", "&#x9;&#xA;", "&#xD800;", "&#xDFFF;", "&#x10FFFF;", "&#x110000;",
    "\U0010FFFF", "&#99999999999;", "<![CDATA[<not a tag> & stuff]]>", "<![CDATA[]]>",
    "a<![CDATA[b]]>c", "<![CDATA[]]]]><![CDATA[>]]>", "a]]>b", "<![CDATA[\r\n]]>",
    "a<!-- comment -->b", "a<!---->b", "a<!-- - -->b", "a<!-- -- -->b", "a<!--->b",
    "a<?pi data?>b", "a<?xml bad?>b", "a<?XmL bad?>b", "a<?pi?>b", "a<b>inner</b>c", "a<b/>c",
    "<string>x</string>", "a<b attr='1'>x</b>", "&undefined;", "a&undefined;b", "&nbsp;",
    "\x01", "\x0b", "\x0c", "\x00", "\x85", "\u2028", "\t\n", "   ", "\xa0", "\u200b",
    "e\u0301", "a\ufeffb", "x" * 10000, "\u00e9" * 3000, "\udcff", "\udcc0\udc80",
    "\udced\udca0\udc80", "\udcf4\udc90\udc80\udc80", "\udce4\udcb8", "\udcf8\udc88\udc80",
    "&lt;dict&gt;", "<!--<dict>-->", "<![CDATA[<dict><dict>]]>", "&#60;/string&#62;",
]

BOOLEANS = [
    "<true/>", "<false/>", "<true></true>", "<false> </false>", "<true>no</true>",
    "<false>true</false>", "<true><!-- x --></true>", "<true a='1'/>", "<TRUE/>", "<yes/>",
    "<true><b/></true>", "<false><![CDATA[1]]></false>",
]

# Whole elements: empty forms and odd shapes of the value elements.
ELEMENTS = [
    "<integer/>", "<real/>", "<string/>", "<data/>", "<date/>", "<dict/>", "<array/>",
    "<key/>", "<integer a='b'>3</integer>", "<string xml:space='preserve'> x </string>",
    "<string>a</string >", "<string>a</strin>", "<string>a", "<plist><integer>1</integer></plist>",
    "<x:string xmlns:x='u'>ns</x:string>", "<string><integer>1</integer></string>",
    "<integer><string>s</string>5</integer>", "<unknown>text</unknown>",
    "<dict><key>CF$UID</key><integer>5</integer></dict>",
    "<dict><key>CF$UID</key><integer>18446744073709551615</integer></dict>",
    "<dict><key>CF$UID</key><string>5</string></dict>",
]


def element(kind, raw):
    return "<%s>%s</%s>" % (kind, raw, kind)


def wrap(kind, raw):
    """The element of a spelling from the pool `kind` (the boolean and
    whole-element pools hold whole elements)."""
    return raw if kind in ("boolean", "whole") else element(kind, raw)


def encode(text, encoding="utf-8"):
    return text.encode(encoding, "surrogateescape" if encoding == "utf-8" else "strict")


# --- Documents --------------------------------------------------------------------

DECL = '<?xml version="1.0" encoding="UTF-8"?>\n'
APPLE_DOCTYPE = ('<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
                 '"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n')
PLAIN = DECL
APPLE = DECL + APPLE_DOCTYPE


def doc(body, prolog=PLAIN, tail="\n"):
    return prolog + '<plist version="1.0">' + body + "</plist>" + tail


def in_dict(value, key="v"):
    return "<dict><key>%s</key>%s</dict>" % (key, value)


def value_files():
    """Every spelling alone, in a dictionary and in an array (strings also
    as keys and below a document type declaration)."""
    files = {}
    pools = [("int", "integer", INTEGERS), ("real", "real", REALS), ("date", "date", DATES),
             ("data", "data", DATAS), ("str", "string", STRINGS)]
    for short, kind, pool in pools:
        for i, raw in enumerate(pool):
            files["e_%s_%03d" % (short, i)] = doc(in_dict(element(kind, raw)))
            files["e_%s_%03d_array" % (short, i)] = doc(
                in_dict("<array>%s%s</array>" % (element(kind, raw), element(kind, raw))))
            if kind == "string":
                files["e_str_%03d_apple" % i] = doc(in_dict(element(kind, raw)), APPLE)
                files["e_str_%03d_key" % i] = doc(
                    "<dict><key>%s</key><true/><key>other</key><false/></dict>" % raw)
    for i, raw in enumerate(BOOLEANS + ELEMENTS):
        files["e_elem_%03d" % i] = doc(in_dict(raw))
        files["e_elem_%03d_array" % i] = doc(in_dict("<array>%s</array>" % raw))
    return files


STRUCTURE = {
    "dup_keys": "<dict><key>a</key><integer>1</integer><key>a</key><integer>2</integer></dict>",
    "dup_keys_kinds": "<dict><key>a</key><array/><key>b</key><true/>"
                      "<key>a</key><string>s</string></dict>",
    "dup_keys_nested": "<dict><key>a</key><dict><key>x</key><true/></dict>"
                       "<key>a</key><dict/></dict>",
    "key_without_value": "<dict><key>a</key></dict>",
    "key_without_value_inner": "<dict><key>a</key><dict><key>b</key></dict></dict>",
    "two_keys": "<dict><key>a</key><key>b</key><true/></dict>",
    "empty_key_value": "<dict><key/><integer>1</integer></dict>",
    "empty_key_pair": "<dict><key></key><string>x</string><key>b</key><true/></dict>",
    "empty_key_then_key": "<dict><key/><key>a</key><integer>1</integer></dict>",
    "empty_key_at_end": "<dict><key>a</key><true/><key/></dict>",
    "empty_key_only": "<dict><key/></dict>",
    "empty_key_inner_then_value": "<dict><key>a</key><dict><key/></dict><string>x</string></dict>",
    "empty_key_inner_then_key": "<dict><key>a</key><dict><key/></dict><key>b</key><true/></dict>",
    "empty_key_inner_in_array": "<dict><key>a</key><array><dict><key/></dict>"
                                "<string>x</string></array></dict>",
    "empty_key_root_then_value": "<dict><key/></dict><dict><key>b</key><true/></dict>",
    "key_in_array": "<dict><key>a</key><array><key>k</key></array></dict>",
    "key_in_array_with_value": "<dict><key>a</key><array><key>k</key><true/></array></dict>",
    "key_top_level": "<key>a</key><dict/>",
    "key_after_root": "<dict/><key>a</key>",
    "value_without_key": "<dict><string>x</string></dict>",
    "value_then_key": "<dict><true/><key>a</key><true/></dict>",
    "key_in_string": "<dict><key>a</key><string><key>b</key></string></dict>",
    "key_in_key": "<dict><key>a<key>b</key></key><true/></dict>",
    "dict_in_key": "<dict><key><dict/></key><true/></dict>",
    "nested_value_in_integer": "<dict><key>a</key><integer><true/></integer></dict>",
    "text_between_entries": "<dict>junk<key>a</key>more<true/>end</dict>",
    "text_in_array": "<dict><key>a</key><array>junk<true/>x</array></dict>",
    "text_after_root": "<dict/>junk",
    "unknown_wrapping_value": "<dict><key>a</key><wrap><integer>1</integer></wrap></dict>",
    "unknown_between": "<dict><x/><key>a</key><y a='1'>t</y><integer>1</integer><z/></dict>",
    "unknown_root": "<unknown><dict><key>a</key><true/></dict></unknown>",
    "nested_plist": "<plist><dict><key>a</key><true/></dict></plist>",
    "attributes": "<dict a='1' b=\"2\"><key c='3'>k</key><integer d='4'>1</integer></dict>",
    "duplicate_attribute": "<dict a='1' a='2'/>",
    "namespaced": "<dict xmlns='urn:x' xmlns:p='urn:p'><key>a</key><p:dict/><true/></dict>",
    "cf_uid": "<dict><key>ref</key><dict><key>CF$UID</key><integer>7</integer></dict></dict>",
    "cf_uid_root": "<dict><key>CF$UID</key><integer>7</integer></dict>",
    "root_array": "<array><true/></array>",
    "root_string": "<string>s</string>",
    "root_integer": "<integer>1</integer>",
    "root_integer_huge": "<integer>18446744073709551616</integer>",
    "root_real": "<real>1.5</real>",
    "root_true": "<true/>",
    "root_data": "<data>AAEC</data>",
    "root_date": "<date>2020-01-01T00:00:00Z</date>",
    "root_nothing": "",
    "root_whitespace": "\n  \n",
    "root_unknown_only": "<foo/>",
    "root_dict_then_array": "<dict/><array/>",
    "root_array_then_dict": "<array/><dict><key>a</key><true/></dict>",
    "root_dict_then_dict": "<dict><key>a</key><true/></dict><dict><key>b</key><false/></dict>",
    "root_dict_then_string": "<dict/><string>s</string>",
    "root_string_then_dict": "<string>s</string><dict/>",
    "empty_containers": "<dict><key>d</key><dict/><key>a</key><array/>"
                        "<key>d2</key><dict></dict></dict>",
    "array_of_everything": "<dict><key>a</key><array><true/><false/><integer>1</integer>"
                           "<real>2</real><string>s</string><data>AA==</data>"
                           "<date>2001-01-01T00:00:00Z</date><dict/><array/></array></dict>",
    "many_entries": "<dict>" + "".join("<key>k%04d</key><integer>%d</integer>" % (i, i)
                                       for i in range(2000)) + "</dict>",
    "long_key": "<dict><key>%s</key><true/></dict>" % ("k" * 70000),
    "unicode_keys_order": "<dict>" + "".join(
        "<key>%s</key><integer>%d</integer>" % (k, i) for i, k in enumerate(
            ["b", "a", "B", "\u00e9", "e", "\U0001F30D", "\uff21", "",
             "a\u0301", "\u00e1", "aa", "a "])) + "</dict>",
}


def structure_files():
    return {"e_struct_" + name: doc(body) for name, body in STRUCTURE.items()}


def nested(depth, kinds="da"):
    """A root dictionary holding containers down to `depth` in all (the
    root counted), alternating among `kinds` (d: dict, a: array)."""
    opening, closing = "", ""
    for level in range(1, depth):
        if kinds[level % len(kinds)] == "d":
            opening += "<dict><key>k%d</key>" % level
            closing = "</dict>" + closing
        else:
            opening += "<array><integer>%d</integer>" % level
            closing = "</array>" + closing
    return "<dict><key>top</key>" + opening + "<string>leaf</string>" + closing + "</dict>"


def depth_files():
    files = {}
    for depth in list(range(1, 20)) + [31, 32, 33, 63, 64, 65, 100, 120, 126, 127, 128, 129,
                                       130, 200, 1000]:
        for kinds in ("d", "a", "da"):
            files["e_depth_%04d_%s" % (depth, kinds)] = doc(nested(depth, kinds))
    # A root array (refused whatever its depth) and a deep value that a later
    # top-level value replaces (plistlib reads the last; the store refuses
    # the depth on the way).
    files["e_depth_root_array_200"] = doc("<array>" * 200 + "</array>" * 200)
    files["e_depth_replaced_200"] = doc("<array>" * 200 + "</array>" * 200 + "<dict/>")
    files["e_depth_replaced_128"] = doc("<array>" * 128 + "</array>" * 128 + "<dict/>")
    # Elements of unknown names: deep, but no containers.
    for count in (100, 900, 2000):
        files["e_depth_unknown_%d" % count] = doc(
            "<dict><key>a</key>" + "<u>" * count + "</u>" * count + "<true/></dict>")
    files["e_depth_unclosed_500"] = doc("<dict><key>a</key>" + "<array>" * 500)
    return files


PROLOGS = {
    "none": "",
    "decl": '<?xml version="1.0"?>\n',
    "decl_utf8": DECL,
    "decl_single_quotes": "<?xml version='1.0' encoding='utf-8' standalone='no'?>",
    "decl_standalone": '<?xml version="1.0" standalone="yes"?>',
    "decl_spaces": '<?xml  version = "1.0"   encoding = "UTF-8" ?>',
    "decl_11": '<?xml version="1.1"?>',
    "decl_20": '<?xml version="2.0"?>',
    "decl_no_version": '<?xml encoding="UTF-8"?>',
    "decl_empty": "<?xml?>",
    "decl_bad_order": '<?xml encoding="UTF-8" version="1.0"?>',
    "decl_unknown_attr": '<?xml version="1.0" foo="bar"?>',
    "decl_twice": '<?xml version="1.0"?><?xml version="1.0"?>',
    "apple": APPLE,
    "apple_computer": DECL + '<!DOCTYPE plist PUBLIC "-//Apple Computer//DTD PLIST 1.0//EN" '
                      '"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n',
    "apple_standalone": '<?xml version="1.0" standalone="yes"?>' + APPLE_DOCTYPE,
    "doctype_bare": DECL + "<!DOCTYPE plist>",
    "doctype_system": DECL + '<!DOCTYPE plist SYSTEM "file:///nonexistent/plist.dtd">',
    "doctype_other_name": DECL + "<!DOCTYPE other>",
    "doctype_subset_decls": DECL + "<!DOCTYPE plist [<!ELEMENT plist ANY><!ATTLIST plist version "
                             'CDATA "1.0"><!-- note --><?pi x?>]>',
    "doctype_subset_default_attr": DECL + "<!DOCTYPE plist [<!ATTLIST dict x CDATA 'y'>]>",
    "doctype_subset_empty": DECL + "<!DOCTYPE plist []>",
    "doctype_subset_pe_ref": DECL + "<!DOCTYPE plist [%pe;]>",
    "doctype_subset_pe_ref_then_entity": DECL + '<!DOCTYPE plist [%pe;<!ENTITY x "boom">]>',
    "doctype_twice": DECL + "<!DOCTYPE plist><!DOCTYPE plist>",
    "entity_internal": DECL + '<!DOCTYPE plist [<!ENTITY x "text">]>',
    "entity_parameter": DECL + '<!DOCTYPE plist [<!ENTITY % p "text">]>',
    "entity_external": DECL + '<!DOCTYPE plist [<!ENTITY x SYSTEM "file:///etc/passwd">]>',
    "entity_external_pe": DECL + '<!DOCTYPE plist [<!ENTITY % x SYSTEM "file:///etc/passwd">%x;]>',
    "entity_unparsed": DECL + '<!DOCTYPE plist [<!NOTATION n SYSTEM "n">'
                              '<!ENTITY x SYSTEM "u" NDATA n>]>',
    "entity_redefined_lt": DECL + '<!DOCTYPE plist [<!ENTITY lt "&#38;#60;">]>',
    "entity_laughs": DECL + '<!DOCTYPE plist [<!ENTITY a "aaaaaaaaaa">'
                            '<!ENTITY b "&a;&a;&a;&a;&a;">]>',
    "comment": DECL + "<!-- a comment -->\n",
    "comment_before_decl": "<!-- first -->" + DECL,
    "pi": DECL + "<?app data?>\n",
    "pi_xml_stylesheet": '<?xml-stylesheet href="s.css"?>',
    "pi_xmlfoo": "<?xmlfoo?>",
    "decl_upper": '<?XML version="1.0"?>',
    "space_before_decl": " " + DECL,
    "newline_before_decl": "\n" + DECL,
    "space_before_plist": " ",
    "doctype_first": APPLE_DOCTYPE,
}


def prolog_files():
    body = in_dict("<string>s&amp;t</string><key>u</key><string>a&x;b&pe;c</string>")
    plain = in_dict("<string>value</string>")
    files = {}
    for name, prolog in PROLOGS.items():
        files["e_prolog_%s" % name] = doc(plain, prolog)
        files["e_prolog_%s_refs" % name] = doc(body, prolog)
    files["e_prolog_doctype_inside_root"] = doc("<!DOCTYPE plist>" + plain, DECL)
    tails = {"none": "", "newlines": "\n\n\n", "comment": "<!-- end -->", "pi": "<?end?>",
             "text": "junk", "element": "<plist/>", "nul": "\x00", "space_text": " x",
             "entity": "&amp;", "cdata": "<![CDATA[x]]>", "crlf": "\r\n", "bom": "\ufeff"}
    for name, tail in tails.items():
        files["e_tail_%s" % name] = doc(plain, DECL, tail)
    files["e_empty"] = ""
    files["e_only_decl"] = DECL
    files["e_only_space"] = "   \n"
    files["e_truncated_decl"] = "<?xml"
    files["e_truncated_plist"] = "<plist"
    files["e_plist_selfclosing"] = DECL + "<plist/>"
    files["e_plist_empty"] = DECL + "<plist></plist>"
    files["e_plist_no_decl"] = '<plist version="1.0"><dict><key>a</key><true/></dict></plist>'
    files["e_dict_without_plist"] = DECL + "<dict><key>a</key><true/></dict>"
    files["e_unclosed_plist"] = DECL + "<plist><dict/>"
    files["e_unclosed_dict"] = DECL + "<plist><dict></plist>"
    files["e_mismatched"] = DECL + "<plist><dict></array></plist>"
    files["e_nul_in_text"] = doc(in_dict("<string>a\x00b</string>"))
    return files


def encoding_files():
    """The same document in each encoding and byte-order mark."""
    body = in_dict("<string>caf\u00e9 &#x1F30D; \u00fc</string>", "cl\u00e9")
    wide_body = in_dict("<string>caf\u00e9 &#x1F30D; \U0001F600 \u4e16</string>", "\U0001F30D")
    ascii_body = in_dict("<string>caf&#xE9; &#x1F30D;</string>", "cl&#233;")
    files = {}

    def add(name, data):
        files["e_enc_" + name] = data

    def declared(encoding):
        return '<?xml version="1.0" encoding="%s"?>' % encoding

    add("utf8_plain", encode(doc(body, '<?xml version="1.0"?>')))
    add("utf8_wide", encode(doc(wide_body, DECL)))
    add("utf8_bom_decl", codecs.BOM_UTF8 + encode(doc(body, DECL)))
    add("utf8_bom_plist", codecs.BOM_UTF8 + encode(doc(body, "")))
    add("utf8_bom_space", codecs.BOM_UTF8 + encode(doc(body, " " + DECL)))
    add("utf8_two_boms", codecs.BOM_UTF8 * 2 + encode(doc(body, DECL)))
    add("utf8_lower", encode(doc(body, declared("utf-8"))))
    add("utf8_no_hyphen", encode(doc(body, declared("UTF8"))))
    for bom_name, bom, codec in (("be", codecs.BOM_UTF16_BE, "utf-16-be"),
                                 ("le", codecs.BOM_UTF16_LE, "utf-16-le")):
        add("utf16%s_bom_decl" % bom_name, bom + doc(body, declared("UTF-16")).encode(codec))
        add("utf16%s_bom_decl_%s" % (bom_name, bom_name),
            bom + doc(body, declared("UTF-16" + bom_name.upper())).encode(codec))
        add("utf16%s_bom_plist" % bom_name, bom + doc(body, "").encode(codec))
        add("utf16%s_bom_wide" % bom_name, bom + doc(wide_body, declared("UTF-16")).encode(codec))
        add("utf16%s_bom_no_encoding" % bom_name,
            bom + doc(body, '<?xml version="1.0"?>').encode(codec))
        add("utf16%s_no_bom" % bom_name, doc(body, declared("UTF-16")).encode(codec))
        add("utf16%s_bom_says_utf8" % bom_name, bom + doc(body, DECL).encode(codec))
        add("utf16%s_bom_odd_length" % bom_name,
            bom + doc(body, declared("UTF-16")).encode(codec) + b"\x00")
        add("utf16%s_bom_lone_surrogate" % bom_name,
            bom + doc(in_dict("<string>X</string>"), declared("UTF-16")).encode(codec).replace(
                "X".encode(codec), b"\xd8\x00" if bom_name == "be" else b"\x00\xd8"))
    add("utf8_bom_says_utf16", codecs.BOM_UTF8 + encode(doc(body, declared("UTF-16"))))
    add("utf8_says_utf16", encode(doc(body, declared("UTF-16"))))
    def add_in(name, text, encoding, codec):
        add(name, doc(in_dict("<string>%s</string>" % text), declared(encoding)).encode(codec))

    for name in ("ISO-8859-1", "iso-8859-1", "latin1", "ISO_8859-1", "l1"):
        add("latin1_" + name.lower().replace("-", ""),
            doc(body, declared(name)).encode("latin-1"))
    add("latin1_as_utf8", doc(body, DECL).encode("latin-1"))
    add_in("windows1252", "\u20ac \u00e9", "windows-1252", "cp1252")
    add_in("cp1252", "\u20ac \u00e9", "cp1252", "cp1252")
    add_in("iso8859_2", "\u0159", "ISO-8859-2", "iso-8859-2")
    add_in("koi8r", "\u0416", "KOI8-R", "koi8-r")
    add("us_ascii", doc(ascii_body, declared("US-ASCII")).encode("ascii"))
    add("us_ascii_lower", doc(ascii_body, declared("us-ascii")).encode("ascii"))
    add("ascii_alias", doc(ascii_body, declared("ascii")).encode("ascii"))
    add("us_ascii_high_byte", doc(body, declared("US-ASCII")).encode("latin-1"))
    add_in("shift_jis", "\u65e5\u672c", "Shift_JIS", "shift_jis")
    add("unknown_name", encode(doc(body, declared("no-such-encoding"))))
    add("utf32", codecs.BOM_UTF32_LE + doc(body, declared("UTF-32")).encode("utf-32-le"))
    return files


# --- Random documents -------------------------------------------------------------

WORDS = ["Count", "Name", "Path", "Enabled", "Ratio", "Blob", "Level", "Port", "Host", "k",
         "CF$UID", "a b", "\u00e9t\u00e9", "\u4e16\u754c", "\U0001F30D", "x&amp;y", "&lt;k&gt;"]
NOISE = ["\n", "  ", "\t", "\r\n", "<!-- note -->", "<?pi x?>", "<unknown/>",
         "<unknown a='1'>text</unknown>", "junk", "<![CDATA[ ]]>", "&#10;"]


def classify(pools):
    """Splits each pool into the spellings that plistlib reads alone in a
    plain document and the store reads alike, and the others."""
    good = {}
    for kind, pool in pools.items():
        good[kind] = [raw for raw in pool
                      if verdict(encode(doc(in_dict(wrap(kind, raw)))))[0] == "txt"]
    return good


class RandomDocument:
    """One random document: a tree of random shape whose values are random
    or edge spellings, laid out in one of several styles."""

    def __init__(self, rng, pools, good, clean):
        self.rng = rng
        self.pools = pools
        self.good = good
        self.clean = clean
        self.newline = rng.choice(["\n", "\r\n", "\r", ""])
        self.indent = rng.choice(["\t", "  ", ""])
        self.noisy = rng.random() < 0.3
        self.max_depth = rng.choice([2, 3, 4, 6, 12])

    def pick(self, kind):
        pool = self.good[kind] if self.clean or self.rng.random() > 0.04 else self.pools[kind]
        return self.rng.choice(pool)

    def random_integer(self):
        rng = self.rng
        value = rng.randrange(1 << rng.choice([7, 8, 16, 31, 32, 53, 63, 64]))
        if rng.random() < 0.3 and value < 1 << 63:
            value = -value - (rng.random() < 0.5)
        if rng.random() < 0.2 and value >= 0:
            return rng.choice(["0x", "0X"]) + rng.choice(["%x", "%X"]) % value
        text = rng.choice(["%d", "%+d", "%05d"]) % value
        return rng.choice(["", " ", "\n"]) + text + rng.choice(["", " ", "\t"])

    def random_real(self):
        rng = self.rng
        value = rng.choice([rng.uniform(-1e6, 1e6), rng.random() * 10 ** rng.randrange(-320, 309),
                            float(rng.randrange(-1000, 1000)), 0.1 * rng.randrange(100)])
        return rng.choice(["%r", "%.17g", "%e", "%.3f", "%g"]) % value

    def random_date(self):
        rng = self.rng
        moment = datetime.datetime(1, 1, 1) + datetime.timedelta(
            seconds=rng.randrange(int((datetime.datetime(9999, 12, 31) -
                                       datetime.datetime(1, 1, 1)).total_seconds())))
        text = moment.strftime("%Y-%m-%dT%H:%M:%S")
        text = "%04d%s" % (moment.year, text[text.index("-"):])
        return text[:rng.choice([10, 13, 16, 19, 19, 19])] + "Z"

    def random_data(self):
        rng = self.rng
        blob = bytes(rng.randrange(256) for _ in range(rng.choice([0, 1, 2, 3, 10, 57, 100])))
        text = base64.b64encode(blob).decode()
        if rng.random() < 0.5:
            width = rng.choice([4, 60, 76])
            text = (self.newline + self.indent).join(
                text[i:i + width] for i in range(0, len(text), width))
        return text

    def random_string(self):
        rng = self.rng
        text = "".join(rng.choice(["a", "Z", " ", "\u00e9", "\u4e16", "\U0001F30D", "&amp;",
                                   "&lt;", "&#x41;", "&#13;", "\n", "\t", "\"", "'", ">",
                                   "<![CDATA[<>&]]>", "<!--c-->", "\u00a0", "\ufffd"])
                       for _ in range(rng.randrange(0, 12)))
        return text

    def key(self):
        rng = self.rng
        choice = rng.random()
        if choice < 0.55:
            return rng.choice(WORDS) + str(rng.randrange(30))
        if choice < 0.75:
            return rng.choice(WORDS)  # repeats: duplicate keys
        if choice < 0.9:
            return self.random_string()
        return self.pick("string")

    # The kinds of scalar values with their shares (up to each bound).
    SCALARS = [(0.15, "integer"), (0.27, "real"), (0.37, "boolean"), (0.6, "string"),
               (0.72, "data"), (0.85, "date"), (1.0, "whole")]

    def scalar(self):
        choice = self.rng.random()
        kind = next(kind for bound, kind in self.SCALARS if choice < bound)
        make = getattr(self, "random_" + kind, None)
        return wrap(kind, make() if make is not None and self.rng.random() < 0.6
                    else self.pick(kind))

    def gap(self, depth):
        text = self.newline + self.indent * depth if self.newline else ""
        if self.noisy and self.rng.random() < 0.2:
            text += self.rng.choice(NOISE if not self.clean else NOISE[:8])
        return text

    def value(self, depth):
        choice = self.rng.random()
        if depth < self.max_depth and choice < 0.12:
            return self.dictionary(depth + 1)
        if depth < self.max_depth and choice < 0.2:
            return self.array(depth + 1)
        return self.scalar()

    def dictionary(self, depth):
        count = self.rng.choice([0, 1, 2, 3, 5, 8, 15])
        if count == 0:
            return self.rng.choice(["<dict/>", "<dict></dict>",
                                    "<dict>" + self.gap(depth) + "</dict>"])
        parts = ["<dict>"]
        for _ in range(count):
            key = self.key()
            parts.append(self.gap(depth) + ("<key/>" if key == "" and self.rng.random() < 0.5
                                            else "<key>%s</key>" % key))
            parts.append(self.gap(depth) + self.value(depth))
        parts.append(self.gap(depth - 1) + "</dict>")
        return "".join(parts)

    def array(self, depth):
        count = self.rng.choice([0, 1, 2, 4, 9])
        if count == 0:
            return self.rng.choice(["<array/>", "<array></array>"])
        items = "".join(self.gap(depth) + self.value(depth) for _ in range(count))
        return "<array>" + items + self.gap(depth - 1) + "</array>"

    def document(self):
        rng = self.rng
        prologs = ["", DECL, APPLE, '<?xml version="1.0"?>' + self.newline, APPLE + "<!-- c -->"]
        if not self.clean and rng.random() < 0.3:
            prologs = [PROLOGS[name] for name in ("doctype_bare", "doctype_subset_decls",
                                                  "decl_standalone", "doctype_subset_pe_ref",
                                                  "doctype_system", "entity_internal",
                                                  "comment_before_decl")]
        text = rng.choice(prologs) + '<plist version="1.0">' + self.gap(0) + \
            self.dictionary(1) + self.gap(0) + "</plist>" + rng.choice(["", "\n", self.newline])
        if self.newline == "\r\n":
            text = text.replace("\n", "\r\n").replace("\r\r\n", "\r\n")
        data = encode(text)
        if not self.clean and rng.random() < 0.1:
            data = codecs.BOM_UTF8 + data
        return data


POOLS = {"integer": INTEGERS, "real": REALS, "string": STRINGS, "data": DATAS, "date": DATES,
         "boolean": BOOLEANS, "whole": ELEMENTS}


def edge_files():
    files = {}
    for group in (value_files(), structure_files(), depth_files(), prolog_files(),
                  encoding_files()):
        files.update(group)
    return {name: data if isinstance(data, bytes) else encode(data)
            for name, data in files.items()}


def generate(directory, count, seed):
    rng = random.Random(seed)
    os.makedirs(directory, exist_ok=True)
    good = classify(POOLS)
    files = edge_files()
    for i in range(count):
        document = RandomDocument(rng, POOLS, good, clean=rng.random() < 0.6)
        files["r%04d" % i] = document.document()
    kinds = {}
    with open(os.path.join(directory, "verdicts"), "w", encoding="utf-8") as verdicts:
        for name, data in files.items():
            with open(os.path.join(directory, name + ".plist"), "wb") as out:
                out.write(data)
            kind, entry = verdict_entry(name, data)
            verdicts.write(entry)
            kinds[kind] = kinds.get(kind, 0) + 1
    return kinds


def list_folder(source, path):
    with open(path, "w", encoding="utf-8") as verdicts:
        for name in sorted(os.listdir(source)):
            if name.endswith(".plist"):
                with open(os.path.join(source, name), "rb") as data:
                    verdicts.write(verdict_entry(name[:-len(".plist")], data.read())[1])


def main(argv):
    if len(argv) == 5 and argv[1] == "generate":
        kinds = generate(argv[2], int(argv[3]), int(argv[4]))
        sys.stdout.write(" ".join("%s=%d" % item for item in sorted(kinds.items())) + "\n")
        return 0
    if len(argv) == 4 and argv[1] == "list":
        list_folder(argv[2], argv[3])
        return 0
    sys.stderr.write(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
