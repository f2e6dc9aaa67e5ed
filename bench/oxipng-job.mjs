// Lossless PNG optimisation with oxipng's WebAssembly build (@jsquash/oxipng), one file:
//   node oxipng-job.mjs LEVEL IN OUT      (OXIPNG_MODULE: path of the installed package)
import { readFile, writeFile } from "node:fs/promises";
import path from "node:path";
import { pathToFileURL } from "node:url";

const [level, input, output] = process.argv.slice(2);
const root = process.env.OXIPNG_MODULE;
const { default: optimise, init } = await import(pathToFileURL(path.join(root, "optimise.js")).href);
await init(await readFile(path.join(root, "codec/pkg/squoosh_oxipng_bg.wasm")));
const png = await readFile(input);
const result = await optimise(png.buffer.slice(png.byteOffset, png.byteOffset + png.byteLength),
                              { level: Number(level), interlace: false, optimiseAlpha: false });
await writeFile(output, new Uint8Array(result));
