// The machine's registry, through its own reg.exe.

async function reg(machine, ...args) {
  const { code, output } = await machine.run('wine', ['reg', ...args]);
  return { ok: code === 0, output };
}

/** The values of a key as {name: "TYPE data"}; undefined when there is no such key. */
export async function readKey(machine, key) {
  const { ok, output } = await reg(machine, 'query', key);
  if (!ok) return undefined;
  const values = [...output.matchAll(/^ {4}(\S+) {4}(REG_\w+) {4}(.*?)\r?$/gm)];
  return Object.fromEntries(values.map(([, name, type, data]) => [name, `${type} ${data}`]));
}

/** Makes a key hold exactly these values, at least one, or go away. */
export async function setKey(machine, key, values) {
  await reg(machine, 'delete', key, '/f');
  for (const [name, value] of Object.entries(values ?? {})) {
    const [type, data] = value.split(' ');
    const { ok, output } = await reg(machine, 'add', key, '/v', name, '/t', type, '/d', data, '/f');
    if (!ok) throw new Error(`${key}: ${output}`);
  }
}
