// Many encodes with sharp in one node process, at sharp's default concurrency, for the batch
// benchmark.
//   node sharp-batch.js FORMAT QUALITY OUTDIR INPUT...
const path = require('path');
const sharp = require(process.env.SHARP_MODULE || 'sharp');

const [format, quality, outdir, ...inputs] = process.argv.slice(2);
const q = Number(quality);
const ext = { jpeg: 'jpg', webp: 'webp' }[format];
if (!ext) {
    console.error(`unknown format ${format}`);
    process.exit(2);
}
Promise.all(
    inputs.map((input) =>
        sharp(input, { limitInputPixels: false })
            .rotate()
            [format]({ quality: q })
            .toFile(path.join(outdir, path.parse(input).name + '.' + ext))
    )
).catch((e) => {
    console.error(e.message);
    process.exit(1);
});
