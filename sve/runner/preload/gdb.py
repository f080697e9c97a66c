"""For gdb, which loads this by itself with libsve_run_896.so and its kin: programs under sve-run as on a processor with SVE.

    info sve [REGISTER...]         Z0 to Z31, P0 to P15 and FFR of the selected thread and frame
    print $sve_z(0).s.u[3]         by element type: b, h, s, d, each as f, u or s
    print $sve_p(0).s              a flag for each element
    print $sve_ffr().b
    set sve z0.s.u[3] = EXPRESSION
    set sve p0.s[3] = 1            without an index: all elements; `set sve p0 = MASK`: a bit for each byte

Stepping, breakpoints, backtraces and watchpoints work on SVE code as on other code. SIGILL is not shown, unless the
instruction is one of nobody; nor is the SIGSEGV by which a handler returns."""
import re
import struct

import gdb
import gdb.unwinder

VECTOR = 0  # bytes; the library says it
FIELDS = ("version blocks next thread_id running used state x sp nzcv z p ffr entries entry_count vector_bytes site_address "
          "site_count save leaving left handler_return end_is_near tell_debugged prepare_sites").split()


def memory(address, size):
    return bytes(gdb.selected_inferior().read_memory(address, size))


def word(address):
    return struct.unpack("<Q", memory(address, 8))[0]


class Runner:
    """The library in the current process."""
    known = None

    def __init__(self, values):
        self.__dict__.update(zip(FIELDS, values))
        self.is_told = False
        self.entry_list = []
        self.prepared = {}

    @staticmethod
    def current():
        """None if there is no process, or the loader is not done with the library. Asks nothing that would look at frames,
        since the unwinder calls it."""
        inferior = gdb.selected_inferior()
        process = (inferior.num, inferior.pid)
        if Runner.known and Runner.known.process == process:
            return Runner.known
        symbol = gdb.lookup_global_symbol("sve_run_debugger")
        if not symbol or not inferior.pid:
            return None
        try:
            values = struct.unpack(f"<{len(FIELDS)}Q", memory(int(symbol.value().address), 8 * len(FIELDS)))
        except gdb.error:
            return None
        if values[0] != 2 or values[-1] == 0:
            return None
        Runner.known = Runner(values)
        Runner.known.process = process
        global VECTOR
        VECTOR = Runner.known.vector_bytes
        return Runner.known

    @staticmethod
    def forget(_):
        Runner.known = None

    def block(self):
        """The selected thread's block, 0 if it has none yet."""
        thread = gdb.selected_thread()
        at = word(self.blocks) if thread else 0
        while at != 0 and struct.unpack("<i", memory(at + self.thread_id, 4))[0] != thread.ptid[1]:
            at = word(at + self.next)
        return at

    def entry_of(self, pc):
        """Where the entry begins whose code `pc` is in, and the address behind its run; None outside of entries."""
        count = word(self.entry_count)
        if count > len(self.entry_list):
            self.entry_list = list(struct.iter_unpack("<3Q", memory(word(self.entries), 24 * count)))
        for begin, end, site in self.entry_list:
            if begin <= pc < end:
                address = word(site + self.site_address)
                return begin, address + 4 * struct.unpack("<I", memory(site + self.site_count, 4))[0]
        return None

    def call(self, function, *arguments):
        """Calls a function of the library in this thread, with the others at rest, and the program's own words where
        breakpoints would stand."""
        locking = gdb.parameter("scheduler-locking")
        gdb.execute("set scheduler-locking on", to_string=True)
        enabled = [b for b in gdb.breakpoints() if b.enabled]
        for breakpoint in enabled:
            breakpoint.enabled = False
        try:
            types = ", ".join(["unsigned long"] * len(arguments)) or "void"
            values = ", ".join(hex(a) for a in arguments)
            return int(gdb.parse_and_eval(f"((unsigned char (*)({types})) {function:#x})({values})")) != 0
        finally:
            for breakpoint in enabled:
                breakpoint.enabled = True
            gdb.execute(f"set scheduler-locking {locking}", to_string=True)

    def prepare(self, begin, end):
        """All instructions between the addresses get their entries, so that gdb can step over them."""
        try:
            text = memory(begin, end - begin)
        except gdb.MemoryError:
            return
        ours = any(w >> 25 & 15 == 2 for (w,) in struct.iter_unpack("<I", text))
        if ours and self.prepared.get((begin, end)) != text and self.call(self.prepare_sites, begin, end):
            self.prepared[(begin, end)] = memory(begin, end - begin)


def function_around(pc):
    """The addresses of the function, or of the one instruction."""
    block = gdb.block_for_pc(pc)
    while block and not block.function:
        block = block.superblock
    if block:
        return block.start, block.end
    symbol = re.match(r"\S+ \+ (\d+) in section", gdb.execute(f"info symbol {pc:#x}", to_string=True))
    return (pc - int(symbol[1]), pc + 1024) if symbol else (pc, pc + 4)


def before_resuming():
    """gdb steps over an instruction by executing it alone. SVE instructions are made ready for that first."""
    thread = gdb.selected_thread()
    if not thread or not thread.is_valid() or thread.is_running():
        return
    runner = Runner.current()
    if not runner or runner.block() == 0:
        return
    if not runner.is_told:
        runner.is_told = runner.call(runner.tell_debugged)
    pc = gdb.newest_frame().pc()
    if runner.entry_of(pc) or runner.save <= pc < runner.left:
        return
    runner.prepare(*function_around(pc))
    for breakpoint in gdb.breakpoints():
        for location in getattr(breakpoint, "locations", None) or []:
            runner.prepare(location.address, location.address + 4)


def around_call(event):
    """A function that gdb calls leaves the program's registers as they were. gdb itself knows of V alone."""
    runner = Runner.current()
    block = runner.block() if runner else 0
    if isinstance(event, gdb.InferiorCallPreEvent):
        parts = ((runner.z, 32 * VECTOR), (runner.p, 16 * VECTOR), (runner.ffr, VECTOR)) if block else ()
        around_call.kept.append([(block + runner.state + at, memory(block + runner.state + at, size)) for at, size in parts])
    elif around_call.kept:
        for at, bytes_before in around_call.kept.pop():
            gdb.selected_inferior().write_memory(at, bytes_before)


around_call.kept = []


def after_stepi():
    """One instruction of the program is one step, not the first of an entry's."""
    runner = Runner.current()
    thread = gdb.selected_thread()
    entry = runner and thread and runner.entry_of(gdb.newest_frame().pc())
    if entry:
        gdb.execute(f"advance *{entry[1]:#x}")


class FrameId:
    def __init__(self, sp, pc):
        self.sp, self.pc = gdb.Value(sp), gdb.Value(pc)


# In a signal frame.
GENERAL_REGISTERS, RECORDS = 128 + 176 + 8, 128 + 176 + 288
FPSIMD_MAGIC, SVE_MAGIC, EXTRA_MAGIC = 0x46508001, 0x53564501, 0x45585401


def find_record(frame, wanted):
    """The address of a record in a signal frame, 0 if there is none."""
    at = frame + RECORDS
    while True:
        magic, size = struct.unpack("<2I", memory(at, 8))
        if magic in (wanted, 0):
            return at if magic else 0
        at = word(at + 8) if magic == EXTRA_MAGIC else at + size


class EntryUnwinder(gdb.unwinder.Unwinder):
    """An entry looks like a function that the program calls at the instruction, and that returns behind its run."""

    def __init__(self):
        super().__init__("sve-run")

    def __call__(self, pending):
        runner = Runner.current()
        if not runner:
            return None
        live = {n: pending.read_register(n) for n in ["pc", "sp", *(f"x{i}" for i in range(31))]}
        value = {n: int(v) & 2**64 - 1 for n, v in live.items()}
        pc = value["pc"]
        if pc == runner.handler_return:
            return self.unwind_signal_frame(pending, live, value["sp"])
        shared = runner.save <= pc < runner.left
        entry = runner.entry_of(value["x30"] if shared else pc)
        if not entry:
            return None
        begin, end = entry
        block = runner.block()
        # Behind its head, in which it pushes and saves registers, an entry keeps them in the thread's state.
        is_head = pc < begin + 64 or runner.save <= pc < runner.leaving
        is_whole = block and (word(block + runner.running) != 0 or not is_head)
        vectors = b""
        if is_whole:
            state = block + runner.state
            names = [f"x{i}" for i in range(31)] + ["sp"]
            value.update(zip(names, struct.unpack("<32Q", memory(state + runner.x, 256))))
            vectors = memory(state + runner.z, 32 * VECTOR)
        elif pc != begin:
            value["x0"], value["x30"] = struct.unpack("<2Q", memory(value["sp"], 16))
            value["sp"] += 32
        value["pc"] = end
        lows = [vectors[i:i + 16] for i in range(0, len(vectors), VECTOR)]
        return self.unwound(pending, live, FrameId(value["sp"], begin), value, lows)

    @staticmethod
    def unwound(pending, live, frame_id, values, vectors):
        info = pending.create_unwind_info(frame_id)
        for name, register in live.items():
            size = register.type.sizeof
            info.add_saved_register(name, gdb.Value((values[name] & (1 << 8 * size) - 1).to_bytes(size, "little"), register.type))
        for n, value in enumerate(vectors):
            info.add_saved_register(f"v{n}", gdb.Value(value, pending.read_register(f"v{n}").type))
        return info

    def unwind_signal_frame(self, pending, live, frame):
        """gdb's own reader never comes to the end of a frame with an SVE record where it knows of no SVE."""
        names = [f"x{i}" for i in range(31)] + ["sp", "pc", "cpsr"]
        values = dict(zip(names, struct.unpack("<34Q", memory(frame + GENERAL_REGISTERS, 272))))
        live["cpsr"] = pending.read_register("cpsr")
        at = find_record(frame, FPSIMD_MAGIC)
        vectors = memory(at + 16, 512)
        lows = [vectors[i:i + 16] for i in range(0, 512, 16)]
        return self.unwound(pending, live, FrameId(frame, values["pc"]), values, lows)


class Registers:
    """Z, P and FFR of the selected thread and frame. The low parts of Z are V, which gdb knows, but within an entry."""

    def __init__(self):
        self.runner = Runner.current()
        self.block = self.runner.block() if self.runner else 0
        if not self.block:
            raise gdb.GdbError("this thread has no SVE registers: it does not run under sve-run, or not yet")
        self.frame = gdb.selected_frame()
        self.state = self.block + self.runner.state
        self.record = self.signal_frame = None  # 0: one that is only a head
        newer = self.frame.newer()
        while newer and self.record is None:
            if newer.pc() == self.runner.handler_return:
                self.signal_frame = int(newer.read_register("sp"))
                at = find_record(self.signal_frame, SVE_MAGIC)
                self.record = at if at and struct.unpack("<I", memory(at + 4, 4))[0] > 16 else 0
            newer = newer.newer()
        self.low_in_state = self.record is None and word(self.block + self.runner.running) != 0

    def z_at(self, n):
        return self.record + 16 + VECTOR * n if self.record else self.state + self.runner.z + VECTOR * n

    def z(self, n):
        if self.record == 0:
            return self.low(n) + bytes(VECTOR - 16)
        whole = memory(self.z_at(n), VECTOR)
        return whole if self.low_in_state else self.low(n) + whole[16:]

    def low(self, n):
        lanes = self.frame.read_register(f"v{n}")["b"]["u"]
        return bytes(int(lanes[i]) for i in range(16))

    def set_z(self, n, value):
        self.need_whole_record()
        inferior = gdb.selected_inferior()
        inferior.write_memory(self.z_at(n) + 16, value[16:])
        if self.low_in_state:
            inferior.write_memory(self.z_at(n), value[:16])
        elif self.record:
            inferior.write_memory(find_record(self.signal_frame, FPSIMD_MAGIC) + 16 + 16 * n, value[:16])
        else:
            for i in range(16):
                gdb.execute(f"set var $v{n}.b.u[{i}] = {value[i]}", to_string=True)
        self.use()

    def p_at(self, n):  # 16 is FFR
        if self.record:
            return self.record + 16 + 32 * VECTOR + VECTOR // 8 * n
        return self.state + (self.runner.ffr if n == 16 else self.runner.p + VECTOR * n)

    def p(self, n):
        """A flag a byte."""
        if self.record == 0:
            return bytes(VECTOR)
        if self.record is None:
            return bytes(b != 0 for b in memory(self.p_at(n), VECTOR))
        bits = int.from_bytes(memory(self.p_at(n), VECTOR // 8), "little")
        return bytes(bits >> i & 1 for i in range(VECTOR))

    def set_p(self, n, flags):
        self.need_whole_record()
        bits = sum(flag << i for i, flag in enumerate(flags))
        gdb.selected_inferior().write_memory(self.p_at(n), bits.to_bytes(VECTOR // 8, "little") if self.record else flags)
        self.use()

    def need_whole_record(self):
        if self.record == 0:
            raise gdb.GdbError("the code that the signal has interrupted had not used SVE: its frame has no room")

    def use(self):
        gdb.selected_inferior().write_memory(self.block + self.runner.used, struct.pack("<I", 1))
        level = self.frame.level()
        gdb.invalidate_cached_frames()
        gdb.execute(f"frame level {level}", to_string=True)


def by_element(flags):
    return b"".join(flags[::size] for size in (1, 2, 4, 8))


class ZFunction(gdb.Function):
    """$sve_z(N): register ZN, by element type."""

    def invoke(self, n):
        return gdb.Value(Registers().z(int(n) % 32), gdb.lookup_type("sve_z_register"))


class PFunction(gdb.Function):
    """$sve_p(N): register PN, a flag for each element."""

    def invoke(self, n):
        return gdb.Value(by_element(Registers().p(int(n) % 16)), gdb.lookup_type("sve_p_register"))


class FfrFunction(gdb.Function):
    """$sve_ffr(): the first-fault register, a flag for each element."""

    def invoke(self):
        return gdb.Value(by_element(Registers().p(16)), gdb.lookup_type("sve_p_register"))


class StopFunction(gdb.Function):
    """$_sve_is_own_fault(): whether the signal that has stopped the program is one that it would have with SVE."""

    def invoke(self):
        runner = Runner.current()
        pc = gdb.newest_frame().pc()
        if not runner:
            return True
        if pc == runner.handler_return or runner.save <= pc < runner.left or runner.entry_of(pc):
            return False
        if gdb.solib_name(pc) == gdb.solib_name(runner.save):
            return word(runner.end_is_near) != 0
        try:
            (instruction,) = struct.unpack("<I", memory(pc, 4))
        except gdb.MemoryError:
            return True
        is_illegal = int(gdb.parse_and_eval("$_siginfo.si_signo")) == 4
        return not (is_illegal and instruction >> 25 & 15 == 2)


def register_names(text):
    return text.split() or [f"z{n}" for n in range(32)] + [f"p{n}" for n in range(16)] + ["ffr"]


class InfoSve(gdb.Command):
    """info sve [REGISTER...]: the SVE registers of the selected thread and frame, the highest element first."""

    def __init__(self):
        super().__init__("info sve", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        registers = Registers()
        for name in register_names(argument):
            match = re.fullmatch(r"z(\d+)|p(\d+)|ffr", name)
            if not match:
                raise gdb.GdbError(f"{name}: not a register; give z0 to z31, p0 to p15 or ffr")
            if match[1]:
                value = registers.z(int(match[1]) % 32)[::-1].hex("_", 8)
            else:
                flags = registers.p(int(match[2]) % 16 if match[2] else 16)
                value = f"{sum(flag << i for i, flag in enumerate(flags)):0{len(flags) // 4}x}"
            print(f"{name:4} 0x{value}")


class SetSve(gdb.Command):
    """set sve REGISTER[.TYPE[.KIND]][[INDEX]] = EXPRESSION, as in `set sve z0.s.f[3] = 1.5`, `set sve p0.s[3] = 1`."""

    SIZES = {"b": 1, "h": 2, "s": 4, "d": 8}
    FORMS = {1: "xBb", 2: "eHh", 4: "fIi", 8: "dQq"}

    def __init__(self):
        super().__init__("set sve", gdb.COMMAND_DATA)

    def invoke(self, argument, from_tty):
        match = re.fullmatch(r"\s*(z\d+|p\d+|ffr)(?:\.([bhsd])(?:\.([fus]))?)?(?:\[(\d+)\])?\s*=\s*(.*)", argument)
        if not match:
            raise gdb.GdbError("give it as in `set sve z0.s.u[3] = 5`")
        name, element, kind, index, expression = match.groups()
        size = self.SIZES[element or "b"]
        value = gdb.parse_and_eval(expression)
        chosen = range(VECTOR // size) if index is None else [int(index)]
        if chosen[-1] * size >= VECTOR:
            raise gdb.GdbError(f"{name}.{element} has {VECTOR // size} elements")
        registers = Registers()
        if name[0] == "z":
            if kind is None:
                kind = "f" if value.type.strip_typedefs().code == gdb.TYPE_CODE_FLT else "u"
            if kind == "f":
                piece = struct.pack("<" + self.FORMS[size][0], float(value))
            else:
                piece = (int(value) & (1 << 8 * size) - 1).to_bytes(size, "little")
            whole = bytearray(registers.z(int(name[1:]) % 32))
            for i in chosen:
                whole[i * size:(i + 1) * size] = piece
            registers.set_z(int(name[1:]) % 32, bytes(whole))
            return
        n = 16 if name == "ffr" else int(name[1:]) % 16
        flags = bytearray(registers.p(n))
        if element is None and index is None:
            flags[:] = bytes(int(value) >> i & 1 for i in range(VECTOR))
        for i in chosen if element or index else []:
            flags[i * size] = int(value) & 1
        registers.set_p(n, bytes(flags))


def catch(signal):
    """A catchpoint in place of the plain stop, since only that takes a condition."""
    gdb.execute(f"handle {signal} nostop noprint pass", to_string=True)
    gdb.execute(f"catch signal {signal}", to_string=True)
    gdb.execute("condition $bpnum $_sve_is_own_fault()", to_string=True)


def start():
    ZFunction("sve_z")
    PFunction("sve_p")
    FfrFunction("sve_ffr")
    StopFunction("_sve_is_own_fault")
    InfoSve()
    SetSve()
    gdb.unwinder.register_unwinder(None, EntryUnwinder(), replace=True)
    gdb.sve_before_resuming, gdb.sve_after_stepi = before_resuming, after_stepi
    for command in ("step", "next", "stepi", "nexti", "continue", "finish", "until", "advance"):
        gdb.execute(f"define hook-{command}\npython gdb.sve_before_resuming()\nend", to_string=True)
    gdb.execute("define hookpost-stepi\npython gdb.sve_after_stepi()\nend", to_string=True)
    gdb.events.inferior_call.connect(around_call)
    gdb.events.exited.connect(Runner.forget)
    gdb.events.clear_objfiles.connect(Runner.forget)
    for signal in ("SIGILL", "SIGSEGV"):
        catch(signal)


# gdb loads this for each program that it runs, and once more when the library is there anew.
if not hasattr(gdb, "sve_before_resuming"):
    start()
