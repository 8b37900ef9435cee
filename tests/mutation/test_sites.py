"""Each mutation operator, on a sample source, gives exactly its mutants."""

import functools
import os
import subprocess
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
            (15, 'delete', 'a < b && b != 0', '{}'),
            (15, 'relational', '<', '<='),
            (15, 'logical', '&&', '||'),
            (15, 'relational', '!=', '=='),
            (15, 'constant', '0', '1'),
            (20, 'negate', 'value > 9', '!(value > 9)'),
            (20, 'relational', '>', '>='),
            (20, 'constant', '9', '0'),
            (20, 'constant', '9', '10'),
            (20, 'constant', '9', '8'),
            (21, 'constant', '9', '0'),
            (21, 'constant', '9', '10'),
            (21, 'constant', '9', '8'),
            (22, 'delete', 'value', '{}'),
            (27, 'delete', 'out << text', ''),
            (27, 'unformatted', 'out << text', '(out).write((text).data(), static_cast<std::streamsize>((text).size()))'),
            (27, 'swap', 'out << text;\n    out << "ok" << std::endl;', 'out << "ok" << std::endl;\n    out << text;'),
            (27, 'move', 'out << text;\n    out << "ok" << std::endl;\n    out << \'x\' << std::flush;', 'out << "ok" << std::endl;\n    out << \'x\' << std::flush;\n    out << text;'),
            (27, 'manipulator', 'text', 'std::dec << text'),
            (27, 'manipulator', 'text', 'std::hex << text'),
            (27, 'manipulator', 'text', 'std::setw(0) << text'),
            (28, 'unformatted', 'out << "ok"', '(out).write("ok", std::char_traits<char>::length("ok"))'),
            (28, 'delete', 'out << "ok" << std::endl', ''),
            (28, 'swap', 'out << "ok" << std::endl;\n    out << \'x\' << std::flush;', 'out << \'x\' << std::flush;\n    out << "ok" << std::endl;'),
            (28, 'manipulator', '"ok"', 'std::dec << "ok"'),
            (28, 'manipulator', '"ok"', 'std::hex << "ok"'),
            (28, 'manipulator', '"ok"', 'std::setw(0) << "ok"'),
            (28, 'literal', 'o', 'O'),
            (28, 'endl', 'std::endl', '"\\n"'),
            (29, 'unformatted', "out << 'x'", "(out).put('x')"),
            (29, 'delete', "out << 'x' << std::flush", ''),
            (29, 'flush', "out << 'x' << std::flush", "out << 'x'"),
            (29, 'manipulator', "'x'", "std::dec << 'x'"),
            (29, 'manipulator', "'x'", "std::hex << 'x'"),
            (29, 'manipulator', "'x'", "std::setw(0) << 'x'"),
            (29, 'literal', 'x', 'X'),
            (35, 'delete', 'result += value', ''),
            (36, 'delete', 'result', '{}'),
            (42, 'delete', 'step()', ''),
            (44, 'catch', '...', 'std::exception const&'),
            (45, 'delete', 'throw', ''),
            (51, 'flag', 'AF_UNIX', 'AF_INET'),
            (51, 'flag', 'AF_UNIX', 'AF_INET6'),
            (51, 'flag', 'SOCK_DGRAM', 'SOCK_SEQPACKET'),
            (51, 'flag', 'SOCK_DGRAM', 'SOCK_STREAM'),
            (51, 'constant', '0', '1'),
            (52, 'delete', 'close(descriptor)', ''),
            (52, 'system-call', 'descriptor', '(descriptor) + 1'),
            (53, 'delete', 'descriptor', '{}'),
            (58, 'constant', '0', '1'),
            (59, 'swap', 'for (int i = 0; i < count; ++i)\n        total += i;\n    while (total > 100)\n        total /= 2;', 'while (total > 100)\n        total /= 2;\n    for (int i = 0; i < count; ++i)\n        total += i;'),
            (59, 'constant', '0', '1'),
            (59, 'negate', 'i < count', '!(i < count)'),
            (59, 'relational', '<', '<='),
            (60, 'delete', 'total += i', ''),
            (61, 'negate', 'total > 100', '!(total > 100)'),
            (61, 'relational', '>', '>='),
            (61, 'constant', '100', '0'),
            (61, 'constant', '100', '101'),
            (61, 'constant', '100', '99'),
            (62, 'delete', 'total /= 2', ''),
            (62, 'constant', '2', '0'),
            (62, 'constant', '2', '1'),
            (62, 'constant', '2', '3'),
            (63, 'delete', 'total', '{}'),
            (69, 'delete', 'std::stoi(text)', '{}'),
            (70, 'catch', 'std::invalid_argument const&', '...'),
            (71, 'constant', '0', '1'),
            (79, 'delete', "local << text << '.'", ''),
            (79, 'literal', '.', '_'),
            (80, 'delete', 'local.str()', '{}'),
            (86, 'delete', 'sendto(descriptor, "q", 1, 0, nullptr, 0)', ''),
            (86, 'swap', 'sendto(descriptor, "q", 1, 0, nullptr, 0);\n    close(open(path, O_WRONLY | O_TRUNC));', 'close(open(path, O_WRONLY | O_TRUNC));\n    sendto(descriptor, "q", 1, 0, nullptr, 0);'),
            (86, 'system-call', 'descriptor', '(descriptor) + 1'),
            (86, 'literal', 'q', 'Q'),
            (86, 'constant', '1', '0'),
            (86, 'constant', '1', '2'),
            (86, 'constant', '0', '1'),
            (86, 'flag', '0', 'MSG_DONTWAIT'),
            (86, 'constant', '0', '1'),
            (87, 'delete', 'close(open(path, O_WRONLY | O_TRUNC))', ''),
            (87, 'system-call', 'open(path, O_WRONLY | O_TRUNC)', '(open(path, O_WRONLY | O_TRUNC)) + 1'),
            (87, 'flag', 'O_WRONLY', 'O_RDONLY'),
            (87, 'flag', 'O_WRONLY', 'O_RDWR'),
            (87, 'system-call', 'O_WRONLY | O_TRUNC', '(O_WRONLY | O_TRUNC) + 1'),
            (87, 'flag', 'O_TRUNC', 'O_APPEND'),
            (93, 'delete', 'kill(getpid(), SIGTERM)', ''),
            (93, 'raise', 'kill(getpid(), SIGTERM)', 'raise(SIGTERM)'),
            (93, 'system-call', 'getpid()', '(getpid()) + 1'),
            (93, 'flag', 'SIGTERM', 'SIGHUP'),
            (93, 'flag', 'SIGTERM', 'SIGINT'),
            (93, 'flag', 'SIGTERM', 'SIGKILL'),
            (93, 'flag', 'SIGTERM', 'SIGUSR1'),
            (100, 'delete', 'copy += 1', ''),
            (100, 'swap', 'copy += 1;\n    value = copy * 2;', 'value = copy * 2;\n    copy += 1;'),
            (100, 'move', 'copy += 1;\n    value = copy * 2;\n    out << copy << value;', 'value = copy * 2;\n    out << copy << value;\n    copy += 1;'),
            (100, 'constant', '1', '0'),
            (100, 'constant', '1', '2'),
            (101, 'delete', 'value = copy * 2', ''),
            (101, 'swap', 'value = copy * 2;\n    out << copy << value;', 'out << copy << value;\n    value = copy * 2;'),
            (101, 'constant', '2', '0'),
            (101, 'constant', '2', '1'),
            (101, 'constant', '2', '3'),
            (102, 'delete', 'out << copy << value', ''),
            (102, 'manipulator', 'copy', 'std::dec << copy'),
            (102, 'manipulator', 'copy', 'std::hex << copy'),
            (102, 'manipulator', 'copy', 'std::setw(0) << copy'),
            (102, 'manipulator', 'value', 'std::dec << value'),
            (102, 'manipulator', 'value', 'std::hex << value'),
            (108, 'unformatted', 'std::cout << "n="', '(std::cout).write("n=", std::char_traits<char>::length("n="))'),
            (108, 'delete', 'std::cout << "n=" << number', ''),
            (108, 'manipulator', '"n="', 'std::dec << "n="'),
            (108, 'manipulator', '"n="', 'std::hex << "n="'),
            (108, 'manipulator', '"n="', 'std::setw(0) << "n="'),
            (108, 'literal', 'n', 'N'),
            (108, 'manipulator', 'number', 'std::dec << number'),
            (108, 'manipulator', 'number', 'std::hex << number'),
        ])

    def test_a_mutant_changes_only_its_range(self):
        with open(SAMPLE, "rb") as file:
            source = file.read()
        for mutant in mutants_of_sample():
            mutated = mutant.apply(source)
            self.assertTrue(mutated.startswith(mutant.header.encode()))
            mutated = mutated[len(mutant.header):]
            self.assertEqual(mutated[:mutant.start], source[:mutant.start])
            self.assertEqual(mutated[mutant.start + len(mutant.replacement):], source[mutant.end:])
            self.assertEqual(source[mutant.start:mutant.end].decode(), mutant.original)

    def test_only_a_zero_width_needs_a_header(self):
        headers = {(m.operator, m.replacement.split(" << ")[0], m.header) for m in mutants_of_sample() if m.header}
        self.assertEqual(headers, {("manipulator", "std::setw(0)", "#include <iomanip>\n")})

    def test_the_mutants_of_the_added_operators_compile(self):
        """One of each kind: what they write must build, or they would be
        reported as not building instead of run."""
        with open(SAMPLE, "rb") as file:
            source = file.read()
        chosen = {}
        for mutant in mutants_of_sample():
            if mutant.operator in ("flag", "raise", "move", "manipulator"):
                chosen.setdefault((mutant.operator, bool(mutant.header)), mutant)
        self.assertEqual(len(chosen), 5)
        with tempfile.TemporaryDirectory() as directory:
            for mutant in chosen.values():
                mutated = os.path.join(directory, "mutant.cpp")
                with open(mutated, "wb") as file:
                    file.write(mutant.apply(source))
                compiled = subprocess.run(["c++", "-std=c++11", "-fsyntax-only", mutated], capture_output=True)
                self.assertEqual(compiled.returncode, 0, mutant.identifier + "\n" + compiled.stderr.decode())

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
