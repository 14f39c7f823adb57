"""What the lines say: words of six languages, numbers, codes, and strings that mean nothing."""

import zlib

from fonts import CHARACTERS

WORD_LISTS = ("american-english", "british-english", "ngerman", "french", "spanish", "italian")
VISIBLE = CHARACTERS[1:]
LETTERS = "abcdefghijklmnopqrstuvwxyz"
DIGITS = "0123456789"
HELD_OUT = 10  # one word of so many serves only for scoring


def load_words(held_out):
    """The ASCII words of each list: those that training sees, or the tenth that only scores do."""
    lists = []
    for name in WORD_LISTS:
        with open("/usr/share/dict/" + name, encoding="utf-8") as text:
            words = [word for word in text.read().split() if word.isascii() and len(word) < 18]
        lists.append(
            [word for word in words if (zlib.crc32(word.encode()) % HELD_OUT == 0) == held_out]
        )
    return lists


class Texts:
    """Draws texts at random; the generator is Python's, so that a seed repeats them."""

    KINDS = (
        ("words", 0.42),
        ("capitals", 0.07),
        ("number", 0.13),
        ("code", 0.10),
        ("address", 0.06),
        ("program", 0.05),
        ("nonsense", 0.07),
        ("symbols", 0.10),
    )

    def __init__(self, words):
        self.lists = words

    def draw(self, rng, kind=None, limit=40):
        """(kind, text); the text has 1 to `limit` characters and no spaces at its ends."""
        names, weights = zip(*self.KINDS)
        kind = kind or rng.choices(names, weights)[0]
        text = getattr(self, kind)(rng, rng.randint(1, limit))
        if len(text) > limit:  # a window of it, mostly from the start of a word
            start = rng.randrange(len(text) - limit + 1)
            space = text.find(" ", start)
            start = space + 1 if 0 <= space < len(text) - limit else start
            text = text[start : start + limit]
        text = text.strip()
        return kind, text or rng.choice(VISIBLE)

    def word(self, rng):
        return rng.choice(self.lists[0] if rng.random() < 0.5 else rng.choice(self.lists))

    def words(self, rng, length):
        text = ""
        while len(text) < length:
            word = self.word(rng)
            chance = rng.random()
            if chance < 0.15:
                word = word.capitalize()
            elif chance < 0.18:
                word = word.upper()
            elif chance < 0.20:
                word = rng.choice(("a", "I", "an", "of", "to", "is", "in", "no", "we", "l", "e", "y"))
            elif chance < 0.24:
                word = self.number(rng, 4).split(" ")[0]
            chance = rng.random()
            if chance < 0.10:
                word += rng.choice((",", ",", ".", ".", ";", ":", "!", "?", "...", " -", " &", "'s"))
            elif chance < 0.15:
                left, right = rng.choice(("()", "[]", "{}", '""', "''", "<>", "**", "__", "||", "``"))
                word = left + word + right
            elif chance < 0.18:
                word += rng.choice("-/+_=&") + self.word(rng)
            text += " " + word
        return text[1:]

    def capitals(self, rng, length):
        return self.words(rng, length).upper()

    def number(self, rng, length):
        parts = []
        while sum(map(len, parts)) + len(parts) < length:
            parts.append(getattr(self, "number_" + rng.choice(("plain", "price", "date", "phone", "sum")))(rng))
        return " ".join(parts)

    def digits(self, rng, low, high):
        return "".join(rng.choice(DIGITS) for _ in range(rng.randint(low, high)))

    def number_plain(self, rng):
        sign = rng.choice(("", "", "", "-", "+", "#", "~", "<", ">"))
        value = self.digits(rng, 1, 6) + rng.choice(("", "", "." + self.digits(rng, 1, 3)))
        return sign + value + rng.choice(("", "", "%", "e-" + self.digits(rng, 1, 2), "th", " kg", "x"))

    def number_price(self, rng):
        value = self.digits(rng, 1, 3) + rng.choice((".", ",", "." + self.digits(rng, 3, 3) + ","))
        value += self.digits(rng, 2, 2)
        return rng.choice(("$" + value, "$ " + value, value + " EUR", "USD " + value, value))

    def number_date(self, rng):
        day, month, year = rng.randint(1, 31), rng.randint(1, 12), rng.randint(1900, 2099)
        return rng.choice(
            (
                f"{year}-{month:02}-{day:02}",
                f"{day:02}.{month:02}.{year}",
                f"{month}/{day}/{year % 100:02}",
                f"{day % 24:02}:{month * 4:02}",
                f"{day % 24}:{month:02}:{year % 60:02}",
            )
        )

    def number_phone(self, rng):
        return rng.choice(("+" + self.digits(rng, 1, 2) + " ", "0", "(" + self.digits(rng, 3, 3) + ") ")) + (
            self.digits(rng, 3, 4) + rng.choice((" ", "-", "/", ".")) + self.digits(rng, 3, 5)
        )

    def number_sum(self, rng):
        return self.digits(rng, 1, 3) + rng.choice(
            (" + ", "+", " = ", "=", " * ", "/", "-", "^", "<", ">", " x ")
        ) + self.digits(rng, 1, 3)

    def code(self, rng, length):
        alphabet = rng.choice((LETTERS.upper() + DIGITS, LETTERS + LETTERS.upper() + DIGITS, DIGITS + "ABCDEF", DIGITS + "abcdef"))
        text = ""
        while len(text) < min(length, 24):
            text += "".join(rng.choice(alphabet) for _ in range(rng.randint(2, 6)))
            text += rng.choice(("-", "-", " ", "/", ".", ":", "_", "", "#"))
        return text.strip("- /.:_#") or rng.choice(alphabet)

    def address(self, rng, length):
        first, second, third = (self.word(rng).lower() for _ in range(3))
        end = rng.choice((".com", ".org", ".net", ".de", ".fr", ".it", ".io", ".co.uk", ".es"))
        number = rng.choice(("", self.digits(rng, 1, 4)))
        return rng.choice(
            (
                f"{first}.{second}{number}@{third}{end}",
                f"{first}{number}@{second}{end}",
                f"https://{first}{end}/{second}/{third}",
                f"http://www.{first}-{second}{end}/{third}.html?q={number}",
                f"www.{first}{second}{end}",
                f"/usr/{first}/{second}-{number}.{third[:3]}",
                f"C:\\{first.capitalize()}\\{second}\\{third}.txt",
                f"~/{first}/{second}_{third}.py",
                f"@{first}_{second} #{third}",
                f"{first}{end}",
            )
        )

    def program(self, rng, length):
        first, second = self.word(rng).lower(), self.word(rng).lower()
        first, second = first.replace("'", "_"), second.replace("'", "")
        number = self.digits(rng, 1, 3)
        return rng.choice(
            (
                f"if ({first} >= {number}) {{",
                f"{first}[{number}] = {second};",
                f"for (int i = {number}; i < {first}; ++i)",
                f"{first}.{second}({number}, '{second[:2]}')",
                f'print("{first}: %d\\n", {second});',
                f"#define {first.upper()}_{second.upper()} {number}",
                f"return {first} ? {second} : !{number};",
                f"${first} = `{second} -l | wc -{rng.choice(LETTERS)}`",
                f"{first} --{second}={number} --{rng.choice(LETTERS)} > {first}.log",
                f"<{first} id=\"{number}\">{second}</{first}>",
                f'{{"{first}": [{number}, "{second}"]}}',
                f"std::{first}<{second}*> {rng.choice(LETTERS)}{number}{{}};",
                f"{first} += {second} & 0x{number}; // {first}",
                f"a[i]^{number} ~ {second}@{first} \\ {number}",
            )
        )

    def nonsense(self, rng, length):
        text = ""
        while len(text) < length:
            word = ""
            for _ in range(rng.randint(1, 4)):
                word += rng.choice("bcdfghjklmnpqrstvwxyz") + rng.choice("aeiouy") + rng.choice(("", "", *"lnrstkx"))
            case = rng.random()
            word = word.capitalize() if case < 0.25 else word.upper() if case < 0.4 else word
            text += " " + word
        return text[1:]

    def symbols(self, rng, length):
        alphabet = VISIBLE if rng.random() < 0.6 else "".join(c for c in VISIBLE if not c.isalnum())
        text = ""
        while len(text) < min(length, 16):
            text += "".join(rng.choice(alphabet) for _ in range(rng.randint(1, 8)))
            text += rng.choice((" ", ""))
        return text
