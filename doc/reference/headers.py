#!/usr/bin/env python3
"""headers.py FROM TO: the headers in the folder FROM, as doxygen wants them, in the folder TO.

The headers are written for whoever opens them: plain comments, one above the declarations that it is about, and what
the library's macros declare left to the macros. Here a comment becomes a documentation comment of the declaration
below it, and of those that follow without a blank line and are called alike (ReadInt, ReadReal), have the same type,
or are all meant (the comment says "each", "both", "the same"); one at the end of a line that of its declaration; the opening lines of the header, and lines that stand alone, those of the file. The file
goes into the group that names it in groups.dox.
"""
import re
import sys
from pathlib import Path

groups = (Path(__file__).parent / 'groups.dox').read_text()

# Where comments stay what they are: they are about code, or part the file.
BANNER = re.compile(r'-{8,}$')
SCOPE = re.compile(r'(inline )?(namespace|class|struct|union|enum|extern ""|typedef (struct|enum|union))(?!\w)')
UNDOCUMENTED = re.compile(r'(namespace\b|extern "C"|friend\b|static_assert\b|[}#]|(public|protected|private):)')
NOT_AGAIN = re.compile(r'(~|virtual ~|using\b|class\b|struct\b|enum\b|explicit operator|.*= delete;)')
# Words that make no two names alike: what a name is about comes behind them.
VAGUE = set('get set is has can on c m str fs io tm sys pc nms btk kel net rsh rec event process file base'.split())
ALL_MEANT = re.compile(r'\b([Ee]ach|[Bb]oth|[Tt]he same (with|for)|Not supported|[Aa]s above|[Nn]one of them)\b')
GONE = re.compile(r'\s*(KEL_DECLARE\w*|KEL_CLASS)\(.*\)\s*$')
# What every exception class has, and no header says again.
FACTORIES = {re.compile(r'static (xrchandle<)?[a-z]+X\w*[ *>]+Create\('): 'A new exception; xthrow() throws it.',
             re.compile(r'\[\[noreturn\]\] static void Throw\('): 'Creates an exception and throws it.'}
EXCEPTION = re.compile(r'KEL_(?:ROOT_|UNCOUNTED_)?EXCEPTION\(')


def group_of(name):
    """The group in whose list of headers the name stands."""
    found = None
    for line in groups.splitlines():
        if group := re.search(r'@defgroup (\w+)', line):
            found = group[1]
        elif f'`{name}`' in line:
            return found
    sys.exit(f'{name} is in no group of groups.dox')


def escape(line):
    """What doxygen would take for a command, a tag or a link, outside of code."""
    if line.startswith('    '):
        return line.replace('*/', '*&zwj;/')
    pieces = line.split('`')
    pieces[::2] = [re.sub(r'([\\@<>&#%*])', r'\\\1', piece) for piece in pieces[::2]]
    return '`'.join(pieces)


def comment(lines, indent='', opening='/**'):
    if len(lines) == 1:
        return [f'{indent}{opening} {escape(lines[0])} */']
    return [f'{indent}{opening}', *(f'{indent} * {escape(line)}'.rstrip() for line in lines), f'{indent} */']


def exception_body(text):
    """What KEL_EXCEPTION and its kind declare."""
    kind, arguments = re.match(r'\s*(KEL_\w+)\((.*)\)\s*$', text, re.S).groups()
    name = arguments.split(',')[0].strip()
    fields = re.findall(r'\(([^()]+), (\w+)\)', re.sub(r'"[^"]*"', '', arguments))
    says = re.search(r'"([^"]*)"', arguments)
    passed = ', '.join(f'{"const char *" if kind == "xstring" else kind + " "}{field}' for kind, field in fields)
    holder = f'xrchandle<{name}>' if kind == 'KEL_EXCEPTION' else f'{name} *'
    about = f' Its description is "{escape(says[1])}".' if says else ''
    lines = ['public:']
    lines += [f'    /** The field {field}. */ {kind} get{field}() const;' for kind, field in fields]
    lines.append(f'    /** A new exception; xthrow() throws it.{about} */ static {holder} Create({passed});')
    lines.append(f'    /** Creates an exception and throws it.{about} */ [[noreturn]] static void Throw({passed});')
    return lines


def likeness(text):
    """What makes declarations alike: the first and last telling words of the name, and all but the name."""
    name = re.search(r'operator\S+|(~?\w+) ?(?=\(|=|;|$)', text)
    if not name:
        return {text}
    words = re.findall(r'[A-Z]+(?![a-z])|[A-Z]?[a-z]+', name[0].replace('operator', ''))
    words = [word.lower() for word in words if word.lower() not in VAGUE] or [name[0]]
    return {words[0], words[-1], text.replace(name[0], '').split(')')[0]}


class Filter:
    def __init__(self, lines):
        self.lines = lines
        self.out = []
        self.scopes = ['file']  # file, scope (of declarations), enum, body
        self.statement = ''  # what has been read of the declaration at hand
        self.depth = 0  # parentheses in it
        self.doc = []  # the comment above
        self.alone = []  # comments above nothing
        self.used = set()  # likenesses of those that the comment is already above

    def declaring(self):
        return self.scopes[-1] != 'body' and not self.statement and self.depth == 0

    def run(self):
        i = 0
        while i < len(self.lines):
            line = self.lines[i]
            self.next = self.lines[i + 1] if i + 1 < len(self.lines) else ''
            if not line.strip():
                if self.doc and not self.used and self.scopes[-1] != 'body':
                    self.alone += ['', *self.doc]
                self.doc = self.doc if self.statement or self.after_body() else []
                self.used = {word for word in self.used if '(' not in word} if self.after_body() else self.used
                self.out.append('')
            elif line.startswith('struct std::hash'):  # in a namespace that doxygen has not met
                while self.lines[i] != '};':
                    i += 1
            elif re.match(r'\s*#', line):
                i = self.directive(i)
            elif re.match(r'\s*//|\s*/\*', line) and self.declaring():
                i = self.comment_lines(i)
            elif GONE.match(line):
                pass
            elif EXCEPTION.match(line.strip()) and self.declaring():
                text = line
                while text.count('(') > text.count(')'):
                    i += 1
                    text += '\n' + self.lines[i]
                self.out += exception_body(text)
            elif made := re.match(r'\s*KEL_(SEQUENCE|DICTIONARY)\((\w+), (.*)\)(?: *//.*)?$', line):
                self.document(line)
                base = f'kel::{made[1].lower()}_of<{made[3]}>'
                self.out.append(f'class {made[2]} : public {base} {{ public: static {made[2]} *create(); }};')
            else:
                self.code(line)
            i += 1
        return self.out

    def after_body(self):
        """A blank line behind the body of a function does not end what is called alike (construct_with, construct)."""
        return bool(self.used) and self.out[-1].strip() == '}' and self.scopes[-1] in ('file', 'scope')

    def directive(self, i):
        if re.match(r'\s*# *define', self.lines[i]) and self.declaring():
            self.document(self.lines[i].replace('#', ''))
        self.out.append(self.lines[i])
        while self.lines[i].endswith('\\'):
            i += 1
            self.out.append(self.lines[i])
        return i

    def comment_lines(self, i):
        """Takes the comment that begins here; answers the index of its last line."""
        block = []
        if self.lines[i].lstrip().startswith('//'):
            while i < len(self.lines) and self.lines[i].lstrip().startswith('//'):
                block.append(self.lines[i].lstrip()[2:].removeprefix(' '))
                i += 1
            i -= 1
        else:
            block.append(re.sub(r'^\s*/\*+ ?', '', self.lines[i]))
            while '*/' not in self.lines[i]:
                i += 1
                block.append(re.sub(r'^\s*\* ?', '', self.lines[i]))
            block[-1] = block[-1].replace('*/', '').rstrip()
            if not block[-1].strip(' /'):
                block.pop()
        self.doc = [] if BANNER.search(block[0]) else block
        self.used = set()
        return i

    def document(self, line):
        """Puts the comment above the declaration that begins with the line."""
        for factory, words in FACTORIES.items():
            if not self.doc and factory.match(line.strip()):
                self.out += comment([words])
        text = re.sub(r'^(KELSTDMT_API|\[\[\w+\]\]|inline|constexpr|static) ', '', line.strip())
        if not self.doc or UNDOCUMENTED.match(text):
            return
        alike = likeness(self.next.strip() if text.startswith('template') and text.endswith('>') else text)
        all_meant = ALL_MEANT.search(' '.join(self.doc))
        if self.used and (NOT_AGAIN.match(text) or self.scopes[-1] == 'enum' or not (all_meant or alike & self.used)):
            self.used.add('')  # what is not alike ends it
            if not NOT_AGAIN.match(text):
                self.doc = []
            return
        self.out += comment(self.doc, re.match(r'\s*', line)[0])
        self.used |= alike

    def code(self, line):
        if self.declaring():
            if re.match(r'\s*(public|protected|private):', line):
                self.doc = []
            self.document(line)
        code, trailing = self.split(line)
        for mark in re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])\'', '""', code):
            self.take(mark)
        done = self.declaring() or self.scopes[-1] == 'enum'
        if trailing and done and not re.match(r'\s*}|.*[{:]\s*$', code):
            self.out.append(f'{code} {comment([trailing], opening="/**<")[0]}')
        else:
            self.out.append(line)

    @staticmethod
    def split(line):
        """The code of a line, and the comment at its end."""
        found = re.match(r'((?:"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])\'|[^"\'/]|/(?![/*]))*)(?://|/\*)(.*)$', line)
        if not found:
            return line, ''
        return found[1], found[2].removesuffix('*/').strip()

    def take(self, mark):
        """One character of code."""
        if mark == '{':
            self.scopes.append(self.opened())
            if self.scopes[-1] in ('scope', 'enum'):
                self.statement, self.doc = '', []
        elif mark == '}':
            closed = self.scopes.pop()
            if closed == 'body' and self.scopes[-1] != 'body' and self.depth == 0:
                self.statement = '' if '=' not in re.sub(r'\(.*\)|operator\S*', '', self.statement) else self.statement
            elif closed == 'scope' or closed == 'enum':
                self.doc = []
        elif self.scopes[-1] != 'body':
            self.depth += (mark == '(') - (mark == ')')
            ends = ';,' if self.scopes[-1] == 'enum' else ';'
            if mark in ends and self.depth == 0 or self.statement.strip() in ('public', 'protected', 'private'):
                self.statement = ''
            elif self.statement or not mark.isspace():
                self.statement += mark

    def opened(self):
        """The kind of the braces that begin behind the statement."""
        if self.scopes[-1] == 'body':
            return 'body'
        text = self.statement
        while text.startswith('template'):
            level = 0
            for at, mark in enumerate(text):
                level += (mark == '<') - (mark == '>')
                if mark == '>' and level == 0:
                    break
            text = re.sub(r'^requires [^>]*> ?', '', text[at + 1:].lstrip())
        if not SCOPE.match(text):
            return 'body'
        return 'enum' if re.match('(typedef )?enum', text) else 'scope'


def reference_of(header):
    lines = header.read_text().split('\n')
    group = group_of(header.name)
    filtered = Filter(lines)
    last = filtered.comment_lines(0)
    about = filtered.doc
    filtered.doc, filtered.lines = [], lines[last + 1:]
    code = filtered.run()
    about = ['@file', f'@ingroup {group}', *map(escape, about + filtered.alone)]
    return '\n'.join(['/**', *(f' * {line}' for line in about), ' */', f'/** @addtogroup {group}', ' * @{ */', *code,
                      '/** @} */', ''])


source, target = map(Path, sys.argv[1:])
target.mkdir(parents=True, exist_ok=True)
for stale in target.glob('*.h'):
    stale.unlink()
if gone := {name for name in re.findall(r'`(\w+\.h)`', groups) if not (source / name).exists()}:
    sys.exit(f'groups.dox names headers that are not there: {gone}')
for header in sorted(source.glob('*.h')):
    (target / header.name).write_text(reference_of(header))
