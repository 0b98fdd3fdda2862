// Fills the page from `gallery`, which gallery.js holds.
"use strict";

function element(name, attributes = {}, ...children) {
    const made = document.createElement(name);
    for (const [key, value] of Object.entries(attributes))
        made[key] = value;
    made.append(...children);
    return made;
}

function add(section, figures) {
    const place = document.querySelector(`#${section}`);
    place.hidden = figures.length === 0;
    place.querySelector("div").append(...figures);
}

// A slider over pictures; `label` says what the one that is shown is, `first` which is shown at first.
function slider(pictures, label, first = 0) {
    const image = element("img", { src: pictures[first], alt: label(first), loading: "lazy" });
    const text = element("span", { textContent: label(first) });
    const range = element("input", { type: "range", min: 0, max: pictures.length - 1, value: first, step: 1 });
    range.setAttribute("aria-label", "frame");
    range.oninput = () => {
        image.src = pictures[range.value];
        text.textContent = image.alt = label(range.value);
    };
    return [image, range, text];
}

function sweep({ title, scene, values, frames }) {
    // The ends of a range are often black or white: it begins in the middle.
    const [image, range, text] = slider(frames, at => values[at], frames.length >> 1);
    const caption = element("figcaption", {}, element("b", { textContent: title }), ": ", text,
        element("br"), `scenes/${scene}.mi`);
    return element("figure", { className: "sweep" }, image, range, caption);
}

function layered({ name, beauty, layers }) {
    const shown = element("img", { src: layers[0].file, alt: layers[0].name });
    const buttons = layers.map(({ name, file }) => {
        const button = element("button", { textContent: name });
        button.onclick = () => {
            shown.src = file;
            shown.alt = name;
            for (const other of buttons)
                other.setAttribute("aria-pressed", other === button);
        };
        return button;
    });
    buttons[0].setAttribute("aria-pressed", true);
    return element("figure", { className: "layers" },
        element("div", { className: "pair" }, element("img", { src: beauty, alt: "beauty" }), shown),
        element("figcaption", {}, `scenes/${name}.mi`), ...buttons);
}

// Two pictures over each other, and where one ends and the other begins.
function wipe({ name, before, after }) {
    const upper = element("img", { src: after, alt: "after" });
    const range = element("input", { type: "range", min: 0, max: 100, value: 50 });
    range.setAttribute("aria-label", "border between before and after");
    range.oninput = () => { upper.style.clipPath = `inset(0 0 0 ${range.value}%)`; };
    return element("figure", { className: "tone" },
        element("div", { className: "wipe" }, element("img", { src: before, alt: "before" }), upper), range,
        element("figcaption", { textContent: `left: no tone operator; right: scenes/${name}.mi` }));
}

const dialog = document.querySelector("dialog");
dialog.onclick = event => { if (event.target.type !== "range") dialog.close(); };

function enlarge({ name, text, frames }) {
    const [image, range, label] = slider(frames, at => frames.length > 1 ? `frame ${Number(at) + 1}` : name);
    range.hidden = frames.length === 1;
    const caption = element("p", { innerHTML: text });
    dialog.replaceChildren(image, element("div", {}, range, element("b", {}, `scenes/${name}.mi`), " ", label, caption));
    dialog.showModal();
}

function scene(entry) {
    const image = element("img", { src: entry.small, alt: entry.name, loading: "lazy", onclick: () => enlarge(entry) });
    const frames = entry.frames.length > 1 ? ` (${entry.frames.length} frames)` : "";
    return element("figure", { className: "scene" }, image,
        element("b", { textContent: entry.name + frames }), element("figcaption", { innerHTML: entry.text }));
}

add("sweeps", gallery.sweeps.map(sweep));
add("elements", gallery.elements.filter(entry => entry.layers.length > 0).map(layered));
add("tone", gallery.tone.map(wipe));
add("scenes", gallery.scenes.map(scene));
