#!/usr/bin/env python3
"""Writes the seed corpus of XmlPListFuzzer into fuzz/corpus/xml/.

Small XML property lists, each showing the fuzzer one thing the reader
meets: every kind of value and its text forms, entities, CDATA, comments,
processing instructions, the document type, byte-order marks and encodings,
duplicate and dangling keys, unknown elements, nesting, and a few files
python3's plistlib writes itself. A few are refused on purpose (an array
as the root, a key without a value, UTF-16 without a byte-order mark), so
that the fuzzer starts from both sides of those rules. Run it again after
changing it; the files it writes are kept in git.

    fuzz/corpus/make_xml_corpus.py
"""
import datetime
import os
import plistlib

HEAD = ('<?xml version="1.0" encoding="UTF-8"?>\n'
        '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
        '"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n')


def document(body, head=HEAD):
    """A plist document whose root dictionary holds `body`."""
    return f'{head}<plist version="1.0">\n<dict>\n{body}\n</dict>\n</plist>\n'


def entries(pairs):
    return "\n".join(f"<key>{k}</key>{v}" for k, v in pairs)


SEEDS = {
    "empty_dict": "<plist><dict/></plist>",
    "empty_dict_decl": document(""),
    "strings": document(entries([
        ("Plain", "<string>Media library</string>"),
        ("Empty", "<string></string>"),
        ("EmptyTag", "<string/>"),
        ("Spaces", "<string>  two  spaces\tand a tab\n</string>"),
        ("Accents", "<string>caf\u00e9 \u65e5\u672c \U0001F600</string>"),
        ("Path", "<string>/srv/media/library/index.db</string>"),
    ])),
    "entities": document(entries([
        ("Named", "<string>&lt;a&gt; &amp; &quot;b&quot; &apos;c&apos;</string>"),
        ("Decimal", "<string>&#65;&#233;&#8364;&#128512;</string>"),
        ("Hex", "<string>&#x41;&#xE9;&#x20AC;&#x1F600;</string>"),
        ("Controls", "<string>tab&#9;lf&#10;cr&#13;crlf&#13;&#10;</string>"),
        ("Key&amp;Amp", "<string>key with an entity</string>"),
    ])),
    "cdata_comments": document(entries([
        ("Cdata", "<string><![CDATA[<not a tag> & not an entity]]></string>"),
        ("Mixed", "<string>a<![CDATA[b]]>c<!-- gone -->d</string>"),
        ("Comment", "<!-- before --><integer><!-- inside -->42</integer>"),
        ("Pi", "<string>x<?app do-something?>y</string>"),
    ])),
    "integers": document(entries([
        ("Zero", "<integer>0</integer>"),
        ("Negative", "<integer>-17</integer>"),
        ("Plus", "<integer>+5</integer>"),
        ("Space", "<integer>  12 \n</integer>"),
        ("Hex", "<integer>0x7fffffff</integer>"),
        ("HexUpper", "<integer>0XFF</integer>"),
        ("Max", "<integer>9223372036854775807</integer>"),
        ("Min", "<integer>-9223372036854775808</integer>"),
        ("Wide", "<integer>9223372036854775808</integer>"),
        ("WideMax", "<integer>18446744073709551615</integer>"),
        ("Leading", "<integer>007</integer>"),
    ])),
    "reals": document(entries([
        ("Third", "<real>0.33333333333333331</real>"),
        ("Exponent", "<real>1.5e300</real>"),
        ("Tiny", "<real>4.9406564584124654e-324</real>"),
        ("NegativeZero", "<real>-0.0</real>"),
        ("Integral", "<real>3</real>"),
        ("Dot", "<real>.5</real>"),
        ("Trailing", "<real>5.</real>"),
        ("Inf", "<real>inf</real>"),
        ("NegInfinity", "<real>-Infinity</real>"),
        ("Nan", "<real>nan</real>"),
        ("NegNan", "<real>-NaN</real>"),
        ("Space", "<real> 2.5 </real>"),
    ])),
    "booleans": document(entries([
        ("True", "<true/>"),
        ("False", "<false/>"),
        ("TrueLong", "<true></true>"),
    ])),
    "data": document(entries([
        ("Short", "<data>AAEC</data>"),
        ("Padded", "<data>AAE=</data>"),
        ("TwoPad", "<data>AA==</data>"),
        ("Empty", "<data></data>"),
        ("Lines", "<data>\n\tAAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8g\n\tISIjJCUmJygp\n\t</data>"),
        ("Junk", "<data>AA*E!C</data>"),
        ("AfterPad", "<data>AA==AAEC</data>"),
    ])),
    "dates": document(entries([
        ("Reference", "<date>2001-01-01T00:00:00Z</date>"),
        ("Early", "<date>0001-01-01T00:00:00Z</date>"),
        ("Late", "<date>9999-12-31T23:59:59Z</date>"),
        ("Epoch", "<date>1970-01-01T00:00:00Z</date>"),
        ("DayOnly", "<date>2020-02-29Z</date>"),
        ("Minutes", "<date>2020-05-17T08:30Z</date>"),
        ("Trailing", "<date>2024-06-30T12:00:00Zjunk</date>"),
    ])),
    "containers": document(entries([
        ("Array", "<array><integer>1</integer><string>two</string><real>3.0</real>"
                  "<true/><data>BA==</data><date>2010-10-10T10:10:10Z</date>"
                  "<array/><dict/></array>"),
        ("EmptyArray", "<array></array>"),
        ("EmptyDict", "<dict></dict>"),
        ("Nested", "<dict><key>Level</key><integer>2</integer><key>Inner</key>"
                   "<dict><key>Level</key><integer>3</integer><key>List</key>"
                   "<array><dict><key>Name</key><string>x</string></dict></array>"
                   "</dict></dict>"),
    ])),
    "deep": "<plist><dict><key>k</key>" + "<array>" * 40 + "<integer>1</integer>"
            + "</array>" * 40 + "</dict></plist>",
    "keys": document(entries([
        ("Same", "<integer>1</integer>"),
        ("Same", "<integer>2</integer>"),
        ("", "<string>empty key</string>"),
        ("Unicode \u00e9\u00e8", "<true/>"),
    ])),
    "dangling_key": document(entries([("Kept", "<true/>")]) + "\n<key>Dangling</key>"),
    "empty_key_dangling": "<plist><dict><key>a</key><false/><key></key></dict></plist>",
    "uid_dict": document(entries([
        ("Uid", "<dict><key>CF$UID</key><integer>7</integer></dict>"),
    ])),
    "unknown_elements": document(entries([
        ("Unknown", "<string>a<b>bold</b>c</string>"),
        ("Other", "<integer>5</integer>"),
    ]) + "\n<extra>ignored</extra>"),
    "two_roots": "<plist><dict><key>First</key><true/></dict>"
                 "<dict><key>Second</key><false/></dict></plist>",
    "array_root": "<plist><array><integer>1</integer></array></plist>",
    "no_plist_element": '<?xml version="1.0"?><dict><key>a</key><integer>1</integer></dict>',
    "internal_subset": '<?xml version="1.0"?><!DOCTYPE plist [<!ELEMENT plist ANY>]>'
                       '<plist><dict><key>a</key><string>b</string></dict></plist>',
}


def encoded_seeds():
    """Seeds whose bytes are not plain UTF-8."""
    body = document(entries([("Name", "<string>caf\u00e9</string>")]))
    latin = body.replace('encoding="UTF-8"', 'encoding="ISO-8859-1"')
    ascii_ = body.replace('encoding="UTF-8"', 'encoding="US-ASCII"').replace("\u00e9", "&#233;")
    return {
        "bom_utf8": b"\xef\xbb\xbf" + body.encode("utf-8"),
        "utf16le_no_bom": body.replace("UTF-8", "UTF-16").encode("utf-16-le"),
        "bom_utf16le": b"\xff\xfe" + body.replace("UTF-8", "UTF-16").encode("utf-16-le"),
        "bom_utf16be": b"\xfe\xff" + body.replace("UTF-8", "UTF-16").encode("utf-16-be"),
        "latin1": latin.encode("latin-1"),
        "ascii": ascii_.encode("ascii"),
    }


def plistlib_seeds():
    """Files python3's plistlib writes, of every kind it writes."""
    settings = {
        "Settings": {
            "Media": {
                "Count": 37,
                "Negative": -1,
                "Big": 2**64 - 1,
                "Enabled": True,
                "Disabled": False,
                "Name": "Media library folder <1> & more",
                "Ratio": 1 / 7,
                "Blob": bytes(range(40)),
                "Since": datetime.datetime(2021, 3, 4, 5, 6, 7),
                "List": [1, "two", 3.5, [], {}, {"Inner": [b"", "x"]}],
                "Empty": {},
            }
        }
    }
    return {
        "plistlib_settings": plistlib.dumps(settings),
        "plistlib_unsorted": plistlib.dumps({"b": 1, "a": [True]}, sort_keys=False),
    }


def main():
    folder = os.path.join(os.path.dirname(os.path.abspath(__file__)), "xml")
    os.makedirs(folder, exist_ok=True)
    files = {name: text.encode("utf-8") for name, text in SEEDS.items()}
    files.update(encoded_seeds())
    files.update(plistlib_seeds())
    for name, data in sorted(files.items()):
        with open(os.path.join(folder, name + ".plist"), "wb") as f:
            f.write(data)
    print(f"{len(files)} seeds in {folder}")


if __name__ == "__main__":
    main()
