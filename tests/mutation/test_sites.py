"""Each mutation operator, on a sample source, gives exactly its mutants."""

import functools
import os
import tempfile
import unittest

import sites

HERE = os.path.dirname(os.path.abspath(__file__))
SAMPLE = os.path.join(HERE, "sample.cpp")


@functools.lru_cache(maxsize=None)
def mutants_of_sample():
    return sites.find_mutants([(SAMPLE, ["-std=c++17", "-xc++"])], {SAMPLE: "sample.cpp"})


class OperatorsOnTheSample(unittest.TestCase):
    def test_every_mutant_exactly(self):
        found = [(m.line, m.operator, m.original, m.replacement) for m in mutants_of_sample()]
        self.assertEqual(found, [
            (13, 'delete', 'a < b && b != 0', '{}'),
            (13, 'relational', '<', '<='),
            (13, 'logical', '&&', '||'),
            (13, 'relational', '!=', '=='),
            (13, 'constant', '0', '1'),
            (18, 'negate', 'value > 9', '!(value > 9)'),
            (18, 'relational', '>', '>='),
            (18, 'constant', '9', '0'),
            (18, 'constant', '9', '10'),
            (18, 'constant', '9', '8'),
            (19, 'constant', '9', '0'),
            (19, 'constant', '9', '10'),
            (19, 'constant', '9', '8'),
            (20, 'delete', 'value', '{}'),
            (25, 'delete', 'out << text', ''),
            (25, 'unformatted', 'out << text', '(out).write((text).data(), static_cast<std::streamsize>((text).size()))'),
            (25, 'swap', 'out << text;\n    out << "ok" << std::endl;', 'out << "ok" << std::endl;\n    out << text;'),
            (26, 'unformatted', 'out << "ok"', '(out).write("ok", std::char_traits<char>::length("ok"))'),
            (26, 'delete', 'out << "ok" << std::endl', ''),
            (26, 'swap', 'out << "ok" << std::endl;\n    out << \'x\' << std::flush;', 'out << \'x\' << std::flush;\n    out << "ok" << std::endl;'),
            (26, 'literal', 'o', 'O'),
            (26, 'endl', 'std::endl', '"\\n"'),
            (27, 'unformatted', "out << 'x'", "(out).put('x')"),
            (27, 'delete', "out << 'x' << std::flush", ''),
            (27, 'flush', "out << 'x' << std::flush", "out << 'x'"),
            (27, 'literal', 'x', 'X'),
            (33, 'delete', 'result += value', ''),
            (34, 'delete', 'result', '{}'),
            (40, 'delete', 'step()', ''),
            (42, 'catch', '...', 'std::exception const&'),
            (43, 'delete', 'throw', ''),
            (49, 'system-call', 'AF_UNIX', 'AF_INET'),
            (49, 'system-call', 'SOCK_DGRAM', 'SOCK_STREAM'),
            (49, 'constant', '0', '1'),
            (50, 'delete', 'close(descriptor)', ''),
            (50, 'system-call', 'descriptor', '(descriptor) + 1'),
            (51, 'delete', 'descriptor', '{}'),
            (56, 'constant', '0', '1'),
            (57, 'swap', 'for (int i = 0; i < count; ++i)\n        total += i;\n    while (total > 100)\n        total /= 2;', 'while (total > 100)\n        total /= 2;\n    for (int i = 0; i < count; ++i)\n        total += i;'),
            (57, 'constant', '0', '1'),
            (57, 'negate', 'i < count', '!(i < count)'),
            (57, 'relational', '<', '<='),
            (58, 'delete', 'total += i', ''),
            (59, 'negate', 'total > 100', '!(total > 100)'),
            (59, 'relational', '>', '>='),
            (59, 'constant', '100', '0'),
            (59, 'constant', '100', '101'),
            (59, 'constant', '100', '99'),
            (60, 'delete', 'total /= 2', ''),
            (60, 'constant', '2', '0'),
            (60, 'constant', '2', '1'),
            (60, 'constant', '2', '3'),
            (61, 'delete', 'total', '{}'),
            (67, 'delete', 'std::stoi(text)', '{}'),
            (68, 'catch', 'std::invalid_argument const&', '...'),
            (69, 'constant', '0', '1'),
            (77, 'delete', "local << text << '.'", ''),
            (77, 'literal', '.', '_'),
            (78, 'delete', 'local.str()', '{}'),
        ])

    def test_a_mutant_changes_only_its_range(self):
        with open(SAMPLE, "rb") as file:
            source = file.read()
        for mutant in mutants_of_sample():
            mutated = mutant.apply(source)
            self.assertEqual(mutated[:mutant.start], source[:mutant.start])
            self.assertEqual(mutated[mutant.start + len(mutant.replacement):], source[mutant.end:])
            self.assertEqual(source[mutant.start:mutant.end].decode(), mutant.original)

    def test_identifiers_do_not_name_lines_and_count_repeats(self):
        identifiers = [m.identifier for m in mutants_of_sample()]
        self.assertEqual(len(identifiers), len(set(identifiers)))
        self.assertIn("sample.cpp\tconstant\t9\t10\t0", identifiers)
        self.assertIn("sample.cpp\tconstant\t9\t10\t1", identifiers)
        self.assertIn("sample.cpp\tdelete\tout << text\t<nothing>\t0", identifiers)

    def test_identifiers_stay_when_unrelated_lines_move(self):
        with open(SAMPLE, "rb") as file:
            source = file.read()
        with tempfile.TemporaryDirectory() as directory:
            moved = os.path.join(directory, "sample.cpp")
            with open(moved, "wb") as file:
                file.write(b"// one more line\n\n" + source)
            shifted = sites.find_mutants([(moved, ["-std=c++17", "-xc++"])], {moved: "sample.cpp"})
        original = mutants_of_sample()
        self.assertEqual([m.identifier for m in shifted], [m.identifier for m in original])
        self.assertEqual([m.line for m in shifted], [m.line + 2 for m in original])


if __name__ == "__main__":
    unittest.main()
