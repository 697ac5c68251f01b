"""Compares Kubernetes manifests with the types of the API, which the npm package kubernetes-types
declares for TypeScript.

It reads the part of that language that the package uses: interfaces, aliases, imports, arrays,
unions, literals, and maps such as { [name: string]: string }. Anything else is an error.
"""

import re
from collections.abc import Iterator
from pathlib import Path
from typing import Any, NamedTuple

TOKEN = re.compile(r'\s*("[^"]*"|[\w$]+|\[\]|[{}\[\]<>:;?|=,])')
PRIMITIVES: dict[str, tuple[type, ...]] = {
    "string": (str,),
    "number": (int, float),
    "boolean": (bool,),
}


class Primitive(NamedTuple):
    name: str


class Literal(NamedTuple):
    value: str


class Reference(NamedTuple):
    file: Path
    name: str


class List(NamedTuple):
    of: "Type"


class Map(NamedTuple):
    of: "Type"


class Union(NamedTuple):
    of: "tuple[Type, ...]"


Type = Primitive | Literal | Reference | List | Map | Union


class Field(NamedTuple):
    type: Type
    is_required: bool


Interface = dict[str, Field]


class Declarations:
    """What one file declares."""

    def __init__(self, file: Path) -> None:
        self.file = file
        self.interfaces: dict[str, Interface] = {}
        self.aliases: dict[str, Type] = {}
        self.imports: dict[str, Path] = {}
        text = re.sub(r"/\*.*?\*/", "", file.read_text(encoding="utf-8"), flags=re.DOTALL).rstrip()
        self.tokens: list[str] = []
        at = 0
        while at < len(text):
            if not (found := TOKEN.match(text, at)):
                raise ValueError(f"{file}: cannot read {text[at:at + 60]!r}")
            self.tokens.append(found[1])
            at = found.end()
        self.tokens.reverse()
        while self.tokens:
            self.declaration()

    def take(self, *wanted: str) -> str:
        token = self.tokens.pop()
        if wanted and token not in wanted:
            raise ValueError(f"{self.file}: {token} instead of {' or '.join(wanted)}")
        return token

    def has(self, token: str) -> bool:
        if self.tokens[-1] != token:
            return False
        self.tokens.pop()
        return True

    def declaration(self) -> None:
        if self.take("import", "export") == "import":
            self.take("{")
            names = [self.take()]
            while self.take(",", "}") == ",":
                names.append(self.take())
            self.take("from")
            path = self.take().strip('"')
            self.take(";")
            self.imports |= {name: (self.file.parent / f"{path}.d.ts").resolve() for name in names}
        elif self.take("interface", "type") == "type":
            name = self.take()
            self.take("=")
            self.aliases[name] = self.type()
            self.take(";")
        else:
            name = self.take()
            self.take("{")
            fields: Interface = {}
            while not self.has("}"):
                self.has("readonly")
                field = self.take()
                is_optional = self.has("?")
                self.take(":")
                fields[field] = Field(self.type(), not is_optional)
                self.take(";")
            self.interfaces[name] = fields

    def type(self) -> Type:
        types = [self.one_type()]
        while self.has("|"):
            types.append(self.one_type())
        return types[0] if len(types) == 1 else Union(tuple(types))

    def one_type(self) -> Type:
        found = self.primary_type()
        return List(found) if self.has("[]") else found

    def primary_type(self) -> Type:
        if self.has("{"):
            self.take("[")
            self.take()
            for token in (":", "string", "]", ":"):
                self.take(token)
            values = self.type()
            self.take(";")
            self.take("}")
            return Map(values)
        name = self.take()
        if name == "Array":
            self.take("<")
            items = self.type()
            self.take(">")
            return List(items)
        if name.startswith('"'):
            return Literal(name.strip('"'))
        if name in PRIMITIVES:
            return Primitive(name)
        return Reference(self.imports.get(name, self.file), name)


class Api:
    """The types of all objects."""

    def __init__(self, package: Path) -> None:
        files = [file.resolve() for file in sorted(package.glob("**/*.d.ts"))]
        self.files = {file: Declarations(file) for file in files if file.name != "version.d.ts"}
        self.objects: dict[tuple[str, str], Reference] = {}
        for file, declarations in self.files.items():
            for name, fields in declarations.interfaces.items():
                version, kind = (fields.get(key) for key in ("apiVersion", "kind"))
                if version and kind and isinstance(version.type, Literal):
                    assert isinstance(kind.type, Literal), f"{file}: {name}"
                    self.objects[version.type.value, kind.type.value] = Reference(file, name)

    def problems(self, document: Any) -> Iterator[str]:
        """What is wrong with a manifest, each with the path of the field."""
        if not isinstance(document, dict):
            yield "is not an object"
            return
        key = (str(document.get("apiVersion")), str(document.get("kind")))
        if key in self.objects:
            yield from self.differences(document, self.objects[key], "")
        else:
            yield f"{key[0]} has no {key[1]}"

    def differences(self, value: Any, wanted: Type, path: str) -> Iterator[str]:
        if isinstance(wanted, Reference):
            declarations = self.files[wanted.file]
            if wanted.name in declarations.aliases:
                yield from self.differences(value, declarations.aliases[wanted.name], path)
            else:
                yield from self.fields(value, declarations.interfaces[wanted.name], path)
        elif isinstance(wanted, Union):
            if all(any(self.differences(value, each, path)) for each in wanted.of):
                yield f"{path}: matches no type of several"
        elif isinstance(wanted, List):
            if not isinstance(value, list):
                yield f"{path}: is not a list"
                return
            for index, item in enumerate(value):
                yield from self.differences(item, wanted.of, f"{path}[{index}]")
        elif isinstance(wanted, Map):
            if not isinstance(value, dict):
                yield f"{path}: is not a map"
                return
            for name, item in value.items():
                yield from self.differences(item, wanted.of, f"{path}.{name}")
        elif isinstance(wanted, Literal):
            if value != wanted.value:
                yield f"{path}: is not {wanted.value}"
        elif not isinstance(value, PRIMITIVES[wanted.name]) or (
            isinstance(value, bool) and wanted.name != "boolean"
        ):
            yield f"{path}: is not a {wanted.name}"

    def fields(self, value: Any, interface: Interface, path: str) -> Iterator[str]:
        if not isinstance(value, dict):
            yield f"{path}: is not an object"
            return
        for name, item in value.items():
            if name in interface:
                yield from self.differences(item, interface[name].type, f"{path}.{name}")
            else:
                yield f"{path}.{name}: is not a field"
        for name, field in interface.items():
            if field.is_required and name not in value:
                yield f"{path}.{name}: is missing"
